#include "lab/input_file.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "lab/input_error.h"

namespace csi_lab {
namespace {

/// In bytes.
constexpr std::size_t max_line_size = std::size_t{16} * 1024 * 1024;
/// How many bad lines of a file are reported.
constexpr std::size_t max_bad_lines = 20;

/// The next line without its end. False at the end of the file.
bool read_line(std::istream& from, std::string& line) {
    using traits = std::istream::traits_type;
    line.clear();
    while (true) {
        const traits::int_type next = from.rdbuf()->sbumpc();
        if (next == '\n' || next == traits::eof()) {
            return next == '\n' || !line.empty();
        }
        if (next == '\0') {
            throw input_error("not a text file: it contains NUL bytes");
        }
        if (line.size() == max_line_size) {
            throw input_error("not a text file: a line is longer than 16 MiB");
        }
        line += traits::to_char_type(next);
    }
}

std::ifstream open_input(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) { // which a stream may read as an empty file
        throw input_error("cannot read " + path + ": " + std::generic_category().message(EISDIR));
    }
    std::ifstream file(path);
    if (!file) {
        throw input_error("cannot read " + path + ": " + std::generic_category().message(errno));
    }
    return file;
}

} // namespace

void read_lines(std::istream& from, const line_function& read) {
    std::string bad;
    std::size_t bad_count = 0;
    std::size_t number = 0;
    for (std::string line; read_line(from, line);) {
        ++number;
        try {
            read(number, line);
        } catch (const std::runtime_error& failure) {
            if (++bad_count <= max_bad_lines) {
                bad += "\nline " + std::to_string(number) + ": " + failure.what();
            }
        }
    }
    if (bad_count > 0) {
        throw input_error(std::to_string(bad_count) +
                          (bad_count == 1 ? " bad line:" : " bad lines:") + bad);
    }
}

void read_lines(const std::string& path, const line_function& read) {
    if (path == "-") {
        read_lines(std::cin, read);
        return;
    }
    std::ifstream file = open_input(path);
    read_lines(file, read);
}

} // namespace csi_lab
