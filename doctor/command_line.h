/// The command line of csi_doctor.
#pragma once

#include <string>
#include <vector>

namespace csi_doctor {

struct options {
    std::string path; // of the configuration
    bool offline = false;
    bool json = false;
    bool quiet = false;
    bool help = false;
    bool version = false;
    std::string color = "auto"; // or "always", "never"
    std::string error;          // what is wrong with the arguments; empty: nothing
};

/// `arguments`: without the program's name.
[[nodiscard]] options parse_command_line(const std::vector<std::string>& arguments);

constexpr const char* usage =
    "usage: csi_doctor CONF [--offline] [--json] [--quiet] [--color auto|always|never]\n"
    "       csi_doctor log FILE... [--json | --svg]\n";

/// Follows the usage.
constexpr const char* help =
    "Reports what is wrong with an installation of csi_receiver. Changes nothing.\n"
    "With log: reports what the daemon did, according to its log file and the rotated ones.\n\n"
    "  CONF       the daemon's configuration file\n"
    "  --offline  do not contact the core services, the fusion daemon or the REST server\n"
    "  --json     print an array of objects\n"
    "             {\"level\",\"where\",\"what\",\"do\",\"code\",\"line\",\"key\",\"item\"};\n"
    "             with log, one object\n"
    "  --svg      with log: print a timeline as an SVG picture\n"
    "  --quiet    print only warnings and failures\n"
    "  --color    color the words ok, warn and FAIL; auto: on a terminal\n"
    "  --version  print the version and exit\n"
    "  --help     print this text and exit\n\n"
    "Run it as the user that runs the daemon. Exit status: 0 all is well, 1 warnings, 2 failures,\n"
    "wrong usage, or standard output cannot be written. With log: 0 nothing wrong, 1 outages or\n"
    "failures, 2 a file cannot be read, wrong usage, or standard output cannot be written.";

} // namespace csi_doctor
