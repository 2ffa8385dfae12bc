/// The daemon's history as a picture.
#pragma once

#include <string>

#include "doctor/log_history.h"

namespace csi_doctor {

/// An SVG file: when the daemon ran and was attached, and its commands, failures and scans. Without
/// a time in the log there is only a text.
[[nodiscard]] std::string to_svg(const log_history& history);

} // namespace csi_doctor
