/// Whether the configuration is plain text at all.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// False, with a finding, when the daemon can read no line of the text. Also reports a byte order
/// mark, and the first line with a byte that does not belong in text.
[[nodiscard]] bool check_encoding(const std::string& text, report& findings);

} // namespace csi_doctor
