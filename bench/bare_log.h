/// The floor of a log line: the current time and a text, formatted for one write.
#pragma once

#include <string>

namespace csi_bench {

/// Returns the line with its line end, as the daemon writes it.
[[nodiscard]] std::string format_log_line(const std::string& text);

} // namespace csi_bench
