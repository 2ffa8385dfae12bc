/// Reads the files that people give to the lab.
#pragma once

#include <cstddef>
#include <functional>
#include <istream>
#include <string>

namespace csi_lab {

using line_function = std::function<void(std::size_t number, const std::string& line)>;

/// Gives each line, without its end and with its number from 1, to a function. What the function
/// throws as std::runtime_error is collected: at the end, this throws input_error that names the
/// bad lines, or earlier if this cannot be a text file, such as /dev/zero.
void read_lines(std::istream& from, const line_function& read);

/// The same for a file, or for standard input if the path is "-". Throws input_error if the file
/// cannot be read.
void read_lines(const std::string& path, const line_function& read);

} // namespace csi_lab
