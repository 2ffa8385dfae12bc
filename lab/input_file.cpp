#include "lab/input_file.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "lab/input_error.h"

namespace csi_lab {

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

} // namespace csi_lab
