#include "doctor/paths.h"

#include <cstddef>

#include <sys/stat.h>

namespace csi_doctor {

bool path_exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

bool is_directory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool is_symbolic_link(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

std::string nearest_existing(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    struct stat status {};
    while (lstat(path.c_str(), &status) != 0 && path != "/" && path != ".") {
        path = parent_directory(path);
    }
    return path;
}

std::string parent_directory(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace csi_doctor
