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

} // namespace csi_lab
