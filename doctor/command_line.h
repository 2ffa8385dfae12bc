/// The command line of csi_doctor.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace csi_doctor {

struct options {
    std::string path; // of the configuration
    bool offline = false;
    bool json = false;
    bool help = false;
    std::string color = "auto"; // or "always", "never"
};

/// `arguments`: without the program's name. Nothing when they are wrong.
[[nodiscard]] std::optional<options> parse_command_line(const std::vector<std::string>& arguments);

constexpr const char* usage =
    "usage: csi_doctor CONF [--offline] [--json] [--color auto|always|never]\n";

/// Follows the usage.
constexpr const char* help =
    "Reports what is wrong with an installation of csi_receiver. Changes nothing.\n\n"
    "  CONF       the daemon's configuration file\n"
    "  --offline  do not contact the core services, the fusion daemon or the REST server\n"
    "  --json     print an array of objects {\"level\",\"where\",\"what\",\"do\"}\n"
    "  --color    color the words ok, warn and FAIL; auto: on a terminal\n\n"
    "Run it as the user that runs the daemon. Exit status: 0 all is well, 1 warnings, 2 failures,\n"
    "wrong usage, or standard output cannot be written.";

} // namespace csi_doctor
