/// The commands that a person types while the lab runs.
#pragma once

#include <string>
#include <vector>

#include "peers/installation.h"

namespace csi_lab {

struct command_result {
    std::vector<std::string> lines; // to show
    bool quit = false;
};

/// Executes a typed line: JSON is queued for the daemon as typed, anything else is a lab command.
/// Never throws: the result says what failed.
[[nodiscard]] command_result execute(const std::string& line, peers::installation& lab);

/// One line per command.
[[nodiscard]] std::vector<std::string> command_help();

} // namespace csi_lab
