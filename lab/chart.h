/// Writes the sequence chart of a recording to a file.
#pragma once

#include <string>
#include <vector>

#include "lab/recording.h"

namespace csi_lab {

enum class chart_format { page, picture };

/// By the end of the name. Throws std::runtime_error when it is neither .html nor .svg.
[[nodiscard]] chart_format chart_format_of(const std::string& file_name);

/// The page as one HTML file that needs nothing else, with the recording in it.
[[nodiscard]] std::string chart_page(const std::vector<entry>& recording, const std::string& name);

/// The chart as an SVG picture.
[[nodiscard]] std::string chart_picture(const std::vector<entry>& recording);

/// Executes "csi_lab chart". Throws input_error, and std::runtime_error when the file cannot be
/// written.
void write_chart(const std::string& recording, const std::string& file_name);

} // namespace csi_lab
