/// The configuration's lines and keys: which ones the daemon drops, overrides or does not know.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// The value that is in effect for a key, and its line, counted from 1.
struct setting {
    std::string value;
    std::size_t line;
};

/// By key; only keys that the daemon knows.
using settings = std::map<std::string, setting>;

/// "line 3 (server)"; "line 3" without a key.
[[nodiscard]] place at_line(std::size_t line, const std::string& key);

/// Reads the configuration's text by the daemon's own rules. Empty when no line is in effect.
[[nodiscard]] settings check_syntax(const std::string& text, report& findings);

} // namespace csi_doctor
