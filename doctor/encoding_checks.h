/// Whether the configuration is plain text at all.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// False, with a finding, when the text is UTF-16 or binary. Also reports a byte order mark, and
/// the first carriage return within a line.
[[nodiscard]] bool check_encoding(const std::string& text, report& findings);

} // namespace csi_doctor
