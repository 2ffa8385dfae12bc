/// What a person may type while the lab runs.
#pragma once

#include <string>
#include <vector>

#include "peers/installation.h"

namespace csi_lab {

/// What to show for a typed line, and whether the lab shall end.
struct typed_answer {
    std::vector<std::string> lines;
    bool quit = false;
};

/// Carries out a typed line: JSON is queued for the daemon as typed, the first word of anything
/// else is a lab command. Never throws: failures are told in the answer.
[[nodiscard]] typed_answer carry_out(const std::string& line, peers::installation& lab);

/// The lab commands, a line each.
[[nodiscard]] std::vector<std::string> command_help();

} // namespace csi_lab
