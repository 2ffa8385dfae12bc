#include "doctor/configuration_file.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "doctor/paths.h"
#include "doctor/regular_file.h"
#include "doctor/text.h"

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
finding describe_irregular(const std::string& path, mode_t mode) {
    if (S_ISDIR(mode)) {
        return {level::fail, "file_is_directory"_code, "file", in_quotes(path) + " is a directory",
                "give the path of the configuration file in it"};
    }
    return {level::fail, "file_not_regular"_code, "file",
            in_quotes(path) + " is " + describe_kind(mode) + ", not a regular file",
            "write the settings into a file, and give its path"};
}

finding describe_size(const std::string& path) {
    return {level::fail, "file_too_large"_code, "file",
            in_quotes(path) + " has 1 MiB or more, too much for a configuration",
            "give the path of the configuration file"};
}

} // namespace

std::optional<std::string> read_configuration_file(const std::string& path, report& findings) {
    regular_file file = read_regular_file(path, size_limit);
    switch (file.outcome) {
    case read_outcome::error:
        findings.add(describe_error(path, file.error));
        return std::nullopt;
    case read_outcome::not_regular:
        findings.add(describe_irregular(path, file.status.st_mode));
        return std::nullopt;
    case read_outcome::too_large:
        findings.add(describe_size(path));
        return std::nullopt;
    case read_outcome::complete:
        break;
    }
    check_permissions_as_root(file.status, path, findings);
    return std::move(file.text);
}

} // namespace csi_doctor
