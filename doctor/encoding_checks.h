/// Whether the configuration is plain text at all.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// False, with a finding, when no line can be read as it was meant. Tells a byte order mark, and
/// the first line with a byte that belongs into no text.
[[nodiscard]] bool check_plain_text(const std::string& text, report& to);

} // namespace csi_doctor
