/// The commands that a person types while the lab runs.
#pragma once

#include <string>
#include <vector>

#include "lab/daemon_runner.h"
#include "peers/installation.h"

namespace csi_lab {

struct command_result {
    std::vector<std::string> lines; // to show
    bool quit = false;
};

/// What commands act on.
struct stage {
    peers::installation& lab;
    daemon_runner* daemon; // nullptr when the lab does not run the daemon
};

/// Executes a typed line: JSON is queued for the daemon as typed, anything else is a lab command.
/// Never throws: the result says what failed.
[[nodiscard]] command_result execute(const std::string& line, const stage& on);

/// What is wrong with the line, as far as it can be told without executing it; empty if nothing is.
[[nodiscard]] std::string check_command(const std::string& line,
                                        const peers::installation_options& lab, bool has_daemon);

/// The first words of all commands.
[[nodiscard]] std::vector<std::string> command_words();

/// One line per command.
[[nodiscard]] std::vector<std::string> command_help();

} // namespace csi_lab
