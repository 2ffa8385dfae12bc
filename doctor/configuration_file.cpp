#include "doctor/configuration_file.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "doctor/paths.h"
#include "doctor/text.h"
#include "platform/descriptor.h"

namespace csi_doctor {
namespace {

constexpr std::size_t size_limit = 1'048'576; // bytes; a configuration has fewer

/// Root can read the file whatever its permissions; the daemon's user may not.
void check_permissions_as_root(const struct stat& status, const std::string& path,
                               report& findings) {
    if (geteuid() == 0 && (status.st_mode & S_IROTH) == 0) {
        findings.warn("file_not_world_readable"_code, "file",
                      "not every user can read " + in_quotes(path) +
                          ", and the service does not run as root",
                      "chmod a+r " + printable(path));
    }
}

finding describe_error(const std::string& path, int error) {
    const std::string what = "cannot read " + in_quotes(path) + ": " + std::strerror(error);
    const std::string obstacle = nearest_existing(path);
    const bool dangling = is_symbolic_link(obstacle) && !path_exists(obstacle);
    switch (error) {
    case ELOOP:
        return {level::fail, "file_link_loop"_code, "file", what,
                "correct the symbolic link " + in_quotes(obstacle) + ", which is part of a loop"};
    case ENOTDIR:
        return {level::fail, "file_below_file"_code, "file", what,
                "correct the path: " + in_quotes(obstacle) + " is not a directory"};
    case ENOENT:
        return {level::fail, dangling ? "file_link_dangling"_code : "file_missing"_code, "file",
                what,
                dangling ? "correct the symbolic link " + in_quotes(obstacle) +
                               ", whose target does not exist"
                         : "check the path, or copy the sample csi_receiver.conf there"};
    case ENAMETOOLONG:
        return {level::fail, "file_name_too_long"_code, "file", what, "check the path"};
    case EACCES:
    case EPERM:
        return {level::fail, "file_not_readable"_code, "file", what,
                "make it readable by the user that runs the daemon"};
    default:
        return {level::fail, "file_read_error"_code, "file", what,
                "copy the file to a place where it can be read"};
    }
}

/// For anything but a regular file.
finding describe_kind(const std::string& path, mode_t mode) {
    if (S_ISDIR(mode)) {
        return {level::fail, "file_is_directory"_code, "file", in_quotes(path) + " is a directory",
                "give the path of the configuration file in it"};
    }
    const char* const kind = S_ISFIFO(mode)   ? "a FIFO"
                             : S_ISSOCK(mode) ? "a socket"
                             : S_ISCHR(mode)  ? "a character device"
                                              : "a block device";
    return {level::fail, "file_not_regular"_code, "file",
            in_quotes(path) + " is " + kind + ", not a regular file",
            "write the settings into a file, and give its path"};
}

finding describe_size(const std::string& path) {
    return {level::fail, "file_too_large"_code, "file",
            in_quotes(path) + " has 1 MiB or more, too much for a configuration",
            "give the path of the configuration file"};
}

/// Reads until the limit or the end. False, with errno, on a read error.
bool read_some(int fd, std::string& text) {
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    do {
        count = read(fd, buffer.data(), buffer.size());
        text.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    } while (text.size() < size_limit && (count > 0 || (count < 0 && errno == EINTR)));
    return count >= 0;
}

/// Fills in text and status. Neither waits for a FIFO's writer nor opens a device, which could have
/// effects.
std::optional<finding> read_regular_file(const std::string& path, std::string& text,
                                         struct stat& status) {
    if (stat(path.c_str(), &status) != 0) {
        return describe_error(path, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return describe_kind(path, status.st_mode);
    }
    const csi_receiver::descriptor file(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.is_open() || fstat(file.get(), &status) != 0) {
        return describe_error(path, errno);
    }
    if (!S_ISREG(status.st_mode)) { // replaced in the meantime
        return describe_kind(path, status.st_mode);
    }
    if (!read_some(file.get(), text)) {
        return describe_error(path, errno);
    }
    return text.size() < size_limit ? std::nullopt : std::optional(describe_size(path));
}

} // namespace

std::optional<std::string> read_configuration_file(const std::string& path, report& findings) {
    std::string text;
    struct stat status {};
    const std::optional<finding> fault = read_regular_file(path, text, status);
    if (fault) {
        findings.add(*fault);
        return std::nullopt;
    }
    check_permissions_as_root(status, path, findings);
    return text;
}

} // namespace csi_doctor
