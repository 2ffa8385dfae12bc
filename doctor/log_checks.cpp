#include "doctor/log_checks.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "doctor/value_checks.h"

namespace csi_doctor {
namespace {

/// What to do, as long as the path does not depend on where the daemon works: else nothing done
/// here would mend it.
std::string remedy_at(const std::string& path, const std::string& remedy) {
    return path.front() == '/' ? remedy : "write it from the root: log_path=/...";
}

/// Root may do everything, and so finds out nothing about others.
std::string looked_at_as() {
    return geteuid() == 0 ? " (looked at as root: another user may have no right to)" : "";
}

constexpr const char* lost = ": the lines of the log are lost silently";

bool is_directory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

void check_missing_directory(const std::string& directory, const std::string& where, report& to) {
    const std::string parent = parent_directory(directory);
    if (!is_directory(parent)) {
        to.fail(where,
                quoted(directory) + " cannot be made, because " + quoted(parent) +
                    " is no directory" + lost,
                remedy_at(directory, "mkdir -p " + printable(directory)));
    } else if (access(parent.c_str(), W_OK | X_OK) != 0) {
        to.fail(where,
                quoted(directory) + " cannot be made in " + quoted(parent) + ": " +
                    std::strerror(errno) + lost,
                remedy_at(directory,
                          "make it for the user that runs the daemon, or run this as that user"));
    } else {
        to.ok(where, quoted(directory) + " is missing; the daemon makes it" + looked_at_as());
    }
}

void check_file(const std::string& file, const std::string& where, report& to) {
    if (is_directory(file)) {
        to.fail(where, quoted(file) + " is a directory" + lost, "remove it");
    } else if (exists(file) && access(file.c_str(), W_OK) != 0) {
        to.fail(where, quoted(file) + ": " + std::strerror(errno) + lost,
                "let the user that runs the daemon write it, or run this as that user");
    } else {
        to.ok(where, "the log goes to " + quoted(file) + looked_at_as());
    }
}

} // namespace

void check_log_file(const settings& from, report& to) {
    const auto found = from.find("log_path");
    const std::string where =
        found == from.end() ? "log_path" : place(found->second.line, "log_path");
    if (!logs_to_file(from)) {
        if (found != from.end()) {
            to.warn(where, "has no effect, because \"log\" sends the log to standard output",
                    "delete this line, or the line with log");
        }
        return;
    }
    std::string directory = found == from.end() ? "/var/run" : found->second.value;
    if (directory.back() == '/') {
        directory.pop_back(); // one only, as the daemon does
    }
    const std::string path = directory.empty() ? "/" : directory;
    if (!exists(path)) {
        check_missing_directory(path, where, to);
    } else if (!is_directory(path)) {
        to.fail(where, quoted(path) + " is no directory" + lost, "write the directory of the log");
    } else if (access(path.c_str(), W_OK | X_OK) != 0) {
        to.fail(where, quoted(path) + ": " + std::strerror(errno) + lost,
                "let the user that runs the daemon write there, or run this as that user");
    } else {
        check_file(directory + "/csi_receiver.log", where, to);
    }
}

} // namespace csi_doctor
