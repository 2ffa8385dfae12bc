/// The configuration's lines and keys: what the daemon drops, overwrites or does not know.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// A key's value that counts, and the line that it stands on, from 1.
struct entry {
    std::string value;
    std::size_t line;
};

/// The keys that the daemon knows, as it would read them.
using settings = std::map<std::string, entry>;

/// "line 3 (server)".
[[nodiscard]] std::string place(std::size_t line, const std::string& key);

/// Reads the configuration's text with the daemon's own rules. Empty when nothing in it counts.
[[nodiscard]] settings check_lines(const std::string& text, report& to);

} // namespace csi_doctor
