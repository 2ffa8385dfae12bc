#include "doctor/log_checks.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <unistd.h>

#include "doctor/paths.h"
#include "doctor/text.h"

namespace csi_doctor {
namespace {

constexpr const char* log_lost = "; log lines are silently lost";

bool logs_to_file(const settings& config) {
    const auto log = config.find("log");
    return log == config.end() || log->second.value == "true";
}

/// For a relative path nothing but an absolute one helps: where it leads depends on the daemon's
/// working directory.
std::string remedy_for(const std::string& path, const std::string& remedy) {
    return path.front() == '/' ? remedy : "write an absolute path: log_path=/...";
}

/// Root may write everywhere, which says nothing about other users.
std::string root_caveat() {
    return geteuid() == 0 ? " (checked as root: another user may lack permission)" : "";
}

void check_missing_directory(const std::string& directory, const std::string& where,
                             report& findings) {
    const std::string parent = parent_directory(directory);
    const std::string cannot = "cannot create " + quoted(directory) + ": ";
    if (!path_exists(parent)) {
        findings.fail(where, cannot + quoted(parent) + " does not exist" + log_lost,
                      remedy_for(directory, "mkdir -p " + printable(directory)));
    } else if (!is_directory(parent)) {
        findings.fail(where, cannot + quoted(parent) + " is not a directory" + log_lost,
                      remedy_for(directory, "write the path of another directory"));
    } else if (access(parent.c_str(), W_OK | X_OK) != 0) {
        findings.fail(where, cannot + std::strerror(errno) + log_lost,
                      remedy_for(directory, "create it for the user that runs the daemon, or run "
                                            "csi_doctor as that user"));
    } else {
        findings.ok(where, quoted(directory) + " does not exist yet; the daemon creates it" +
                               root_caveat());
    }
}

void check_file(const std::string& file, const std::string& where, report& findings) {
    if (is_directory(file)) {
        findings.fail(where, quoted(file) + " is a directory" + log_lost, "remove it");
    } else if (path_exists(file) && access(file.c_str(), W_OK) != 0) {
        findings.fail(where,
                      "cannot write to " + quoted(file) + ": " + std::strerror(errno) + log_lost,
                      "make it writable by the user that runs the daemon, or run csi_doctor as "
                      "that user");
    } else {
        findings.ok(where, "the log goes to " + quoted(file) + root_caveat());
    }
}

void check_directory(const std::string& directory, const std::string& where, report& findings) {
    const std::string path = directory.empty() ? "/" : directory;
    if (!path_exists(path)) {
        check_missing_directory(path, where, findings);
    } else if (!is_directory(path)) {
        findings.fail(where, quoted(path) + " is not a directory" + log_lost,
                      "write the path of a directory");
    } else if (access(path.c_str(), W_OK | X_OK) != 0) {
        findings.fail(where,
                      "cannot write to " + quoted(path) + ": " + std::strerror(errno) + log_lost,
                      "make it writable by the user that runs the daemon, or run csi_doctor as "
                      "that user");
    } else {
        check_file(directory + "/csi_receiver.log", where, findings);
    }
}

} // namespace

void check_log_file(const settings& config, report& findings) {
    const auto found = config.find("log_path");
    const std::string where =
        found == config.end() ? "log_path" : line_label(found->second.line, "log_path");
    if (logs_to_file(config)) {
        std::string directory = found == config.end() ? "/var/run" : found->second.value;
        if (directory.back() == '/') {
            directory.pop_back(); // only one, as the daemon does
        }
        check_directory(directory, where, findings);
    } else if (found != config.end()) {
        findings.warn(where, "has no effect, because \"log\" sends the log to standard output",
                      "delete this line, or the \"log\" line");
    }
}

} // namespace csi_doctor
