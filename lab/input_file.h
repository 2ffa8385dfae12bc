/// Opens files that people name on the command line.
#pragma once

#include <fstream>
#include <string>

namespace csi_lab {

/// Throws input_error with the reason if the file cannot be read.
[[nodiscard]] std::ifstream open_input(const std::string& path);

} // namespace csi_lab
