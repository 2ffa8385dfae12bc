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

void check_missing_directory(const std::string& directory, const place& where, report& findings) {
    const std::string parent = parent_directory(directory);
    const std::string nearest = nearest_existing(directory);
    const std::string cannot = "cannot create " + in_quotes(directory) + ": ";
    if (is_symbolic_link(nearest) && !path_exists(nearest)) {
        findings.fail("log_path_broken_link"_code, where,
                      cannot + in_quotes(nearest) + " is a symbolic link that leads nowhere" +
                          log_lost,
                      remedy_for(directory, "correct or remove the symbolic link"));
    } else if (!is_directory(nearest)) {
        findings.fail("log_path_below_file"_code, where,
                      cannot + in_quotes(nearest) + " is not a directory" + log_lost,
                      remedy_for(directory, "write the path of another directory"));
    } else if (!path_exists(parent)) {
        findings.fail("log_parent_missing"_code, where,
                      cannot + in_quotes(parent) + " does not exist" + log_lost,
                      remedy_for(directory, "mkdir -p " + printable(directory)));
    } else if (access(parent.c_str(), W_OK | X_OK) != 0) {
        findings.fail("log_directory_not_creatable"_code, where,
                      cannot + std::strerror(errno) + log_lost,
                      remedy_for(directory, "create it for the user that runs the daemon, or run "
                                            "csi_doctor as that user"));
    } else {
        findings.ok("log_directory_to_create"_code, where,
                    in_quotes(directory) + " does not exist yet; the daemon creates it" +
                        root_caveat());
    }
}

void check_file(const std::string& file, const place& where, report& findings) {
    if (is_directory(file)) {
        findings.fail("log_file_is_directory"_code, where,
                      in_quotes(file) + " is a directory" + log_lost, "remove it");
    } else if (is_symbolic_link(file) && !path_exists(file) && errno == ELOOP) {
        findings.fail("log_file_link_loop"_code, where,
                      in_quotes(file) + " is a symbolic link in a loop" + log_lost, "remove it");
    } else if (path_exists(file) && access(file.c_str(), W_OK) != 0) {
        findings.fail("log_file_not_writable"_code, where,
                      "cannot write to " + in_quotes(file) + ": " + std::strerror(errno) + log_lost,
                      "make it writable by the user that runs the daemon, or run csi_doctor as "
                      "that user");
    } else {
        findings.ok("log_file_ok"_code, where,
                    "the log goes to " + in_quotes(file) + root_caveat());
    }
}

void check_directory(const std::string& directory, const place& where, report& findings) {
    const std::string path = directory.empty() ? "/" : directory;
    if (!path_exists(path)) {
        check_missing_directory(path, where, findings);
    } else if (!is_directory(path)) {
        findings.fail("log_path_not_directory"_code, where,
                      in_quotes(path) + " is not a directory" + log_lost,
                      "write the path of a directory");
    } else if (access(path.c_str(), W_OK | X_OK) != 0) {
        findings.fail("log_directory_not_writable"_code, where,
                      "cannot write to " + in_quotes(path) + ": " + std::strerror(errno) + log_lost,
                      "make it writable by the user that runs the daemon, or run csi_doctor as "
                      "that user");
    } else {
        check_file(directory + "/csi_receiver.log", where, findings);
    }
}

} // namespace

void check_log_file(const settings& config, report& findings) {
    const auto found = config.find("log_path");
    const place where = found == config.end() ? place("log_path", 0, "log_path")
                                              : at_line(found->second.line, "log_path");
    if (logs_to_file(config)) {
        std::string directory = found == config.end() ? "/var/run" : found->second.value;
        if (directory.back() == '/') {
            directory.pop_back(); // only one, as the daemon does
        }
        check_directory(directory, where, findings);
    } else if (found != config.end()) {
        findings.warn("log_path_no_effect"_code, where,
                      "has no effect, because \"log\" sends the log to standard output",
                      "delete this line, or the \"log\" line");
    }
}

} // namespace csi_doctor
