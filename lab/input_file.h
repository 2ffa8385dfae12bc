/// Opens and reads the files that people give to the lab.
#pragma once

#include <cstddef>
#include <fstream>
#include <istream>
#include <string>

namespace csi_lab {

/// The longest line of a script or recording, in bytes.
constexpr std::size_t max_line_size = std::size_t{16} * 1024 * 1024;
/// How many wrong lines of a file are reported.
constexpr std::size_t max_wrong_lines = 20;

/// Throws input_error with the reason if the file cannot be read.
[[nodiscard]] std::ifstream open_input(const std::string& path);

/// Reads the next line without its end. False at the end of the file. Throws input_error when this
/// cannot be a text file, such as /dev/zero.
[[nodiscard]] bool read_line(std::istream& from, std::string& line);

} // namespace csi_lab
