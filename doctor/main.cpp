/// The program csi_doctor: says what is wrong with an installation.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "doctor/findings.h"
#include "doctor/log_checks.h"
#include "doctor/network_checks.h"
#include "doctor/routing_checks.h"
#include "doctor/syntax_checks.h"
#include "doctor/value_checks.h"

namespace {

constexpr int exit_usage = 2;
constexpr int exit_unwritable = 2;
constexpr const char* usage =
    "usage: csi_doctor CONF [--offline] [--json] [--color auto|always|never]\n";
constexpr const char* help =
    "Says what is wrong with an installation of csi_receiver, and disturbs nothing.\n\n"
    "  CONF       the daemon's configuration file\n"
    "  --offline  do not ask core services, fusion daemon and REST server\n"
    "  --json     print an array of objects {\"level\",\"where\",\"what\",\"do\"}\n"
    "  --color    of the words ok, warn and FAIL; auto: on a terminal\n\n"
    "Run it as the user that runs the daemon. Exit status: 0 all is well, 1 warnings, 2 failures,\n"
    "wrong usage, or no way to print.";

struct options {
    std::string path;
    bool offline = false;
    bool json = false;
    bool help = false;
    std::string color = "auto";
};

/// Nothing when the arguments are wrong.
std::optional<options> parse_arguments(const std::vector<std::string>& arguments) {
    constexpr std::string_view color_is = "--color=";
    options given;
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string& argument = arguments[at];
        if (argument == "--offline") {
            given.offline = true;
        } else if (argument == "--json") {
            given.json = true;
        } else if (argument == "--help" || argument == "-h") {
            given.help = true;
        } else if (argument == "--color" && at + 1 < arguments.size()) {
            given.color = arguments[++at];
        } else if (argument.compare(0, color_is.size(), color_is) == 0) {
            given.color = argument.substr(color_is.size());
        } else if (argument.empty() || argument.front() == '-' || !given.path.empty()) {
            return std::nullopt;
        } else {
            given.path = argument;
        }
    }
    const bool known = given.color == "auto" || given.color == "always" || given.color == "never";
    const bool complete = given.help || !given.path.empty();
    return known && complete ? std::optional<options>(given) : std::nullopt;
}

/// Root reads a file whatever its rights say, so that these say nothing about the daemon's user.
void check_rights(mode_t mode, const std::string& path, csi_doctor::report& to) {
    if (geteuid() == 0 && S_ISREG(mode) && (mode & S_IROTH) == 0) {
        to.warn("file",
                "others than root may have no right to read " + csi_doctor::quoted(path) +
                    ", and the service runs as another user",
                "chmod a+r " + csi_doctor::printable(path));
    }
}

/// Nothing, with a finding, when the daemon could not read the file, either.
std::optional<std::string> read_file(const std::string& path, csi_doctor::report& to) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        to.fail("file", csi_doctor::quoted(path) + " is a directory",
                "name the configuration file in it");
        return std::nullopt;
    }
    errno = 0;
    std::ifstream file(path);
    std::ostringstream text;
    if (!file) {
        const int error = errno;
        to.fail("file", csi_doctor::quoted(path) + " cannot be read: " + std::strerror(error),
                error == ENOENT ? "check the path, or copy the sample csi_receiver.conf there"
                                : "let the user that runs the daemon read it");
        return std::nullopt;
    }
    if (file.peek() != std::ifstream::traits_type::eof()) {
        text << file.rdbuf();
    }
    check_rights(status.st_mode, path, to);
    return text.str();
}

/// Sends it off at once; false when that does not work.
bool print(const std::string& line) {
    std::cout << line << std::endl;
    return std::cout.good();
}

int say_unwritable() {
    std::cerr << "csi_doctor: standard output cannot be written\n";
    return exit_unwritable;
}

void examine(const options& given, csi_doctor::report& to) {
    const std::optional<std::string> text = read_file(given.path, to);
    if (!text) {
        return;
    }
    const csi_doctor::settings taken = csi_doctor::check_lines(*text, to);
    if (taken.empty()) {
        return;
    }
    csi_doctor::check_values(taken, to);
    csi_doctor::check_routing(taken, to);
    csi_doctor::check_log_file(taken, to);
    if (!given.offline) {
        csi_doctor::check_network(taken, to);
    }
}

int run(const options& given) {
    const bool color =
        given.color == "always" || (given.color == "auto" && isatty(STDOUT_FILENO) == 1);
    bool printed = true;
    csi_doctor::report found([&](const csi_doctor::finding& one) {
        printed = (given.json || print(csi_doctor::to_line(one, color))) && printed;
    });
    examine(given, found);
    printed = print(given.json ? csi_doctor::to_json(found.all())
                               : csi_doctor::to_summary(found.all())) &&
              printed;
    return printed ? found.exit_status() : say_unwritable();
}

} // namespace

int main(int argc, char* argv[]) {
    const auto given =
        parse_arguments(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
    if (!given) {
        std::cerr << usage;
        return exit_usage;
    }
    // A file or a peer's socket must not take its place, and get the findings.
    if (fcntl(STDOUT_FILENO, F_GETFD) == -1) {
        return say_unwritable();
    }
    if (given->help) {
        return print(std::string(usage) + help) ? 0 : say_unwritable();
    }
    return run(*given);
}
