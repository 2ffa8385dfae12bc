/// The daemon's history as people and as programs read it.
#pragma once

#include <string>

#include "doctor/log_history.h"

namespace csi_doctor {

/// Several lines, each with its end.
[[nodiscard]] std::string to_text(const log_history& history);

/// One object, documented in docs/operations.md.
[[nodiscard]] std::string to_json(const log_history& history);

/// "2026-11-21 22:14:03", in UTC.
[[nodiscard]] std::string format_time(log_time time);

/// "1 h 3 min", "12 s".
[[nodiscard]] std::string format_length(log_time seconds);

} // namespace csi_doctor
