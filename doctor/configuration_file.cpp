#include "doctor/configuration_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

#include "doctor/paths.h"
#include "doctor/text.h"

namespace csi_doctor {
namespace {

/// Root can read the file whatever its permissions; the daemon's user may not.
void check_permissions_as_root(const std::string& path, report& findings) {
    struct stat status {};
    if (geteuid() == 0 && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        (status.st_mode & S_IROTH) == 0) {
        findings.warn("file",
                      "not every user can read " + csi_doctor::quoted(path) +
                          ", and the service does not run as root",
                      "chmod a+r " + printable(path));
    }
}

} // namespace

std::optional<std::string> read_configuration_file(const std::string& path, report& findings) {
    if (is_directory(path)) {
        findings.fail("file", csi_doctor::quoted(path) + " is a directory",
                      "give the path of the configuration file in it");
        return std::nullopt;
    }
    errno = 0;
    std::ifstream file(path);
    if (!file) {
        const int error = errno;
        findings.fail("file",
                      "cannot read " + csi_doctor::quoted(path) + ": " + std::strerror(error),
                      error == ENOENT ? "check the path, or copy the sample csi_receiver.conf there"
                                      : "make it readable by the user that runs the daemon");
        return std::nullopt;
    }
    check_permissions_as_root(path, findings);
    std::ostringstream text;
    if (file.peek() != std::ifstream::traits_type::eof()) { // inserting nothing would be an error
        text << file.rdbuf();
    }
    return text.str();
}

} // namespace csi_doctor
