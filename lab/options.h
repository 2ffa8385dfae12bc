/// The command line of csi_lab.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "lab/script.h"
#include "peers/installation.h"

namespace csi_lab {

struct arguments {
    peers::installation_options lab;
    unsigned delay_ms = 0;
    unsigned appear_after_ms = static_cast<unsigned>(lab.times.appear_after.count());
    unsigned vanish_after_ms = static_cast<unsigned>(lab.times.vanish_after.count());
    std::string color = "auto";
    bool print_config = false;
    bool quiet = false;
    bool json = false;
    std::vector<std::string> only;
    std::vector<std::string> except;
    std::string record;                // file to write; empty: none
    std::string script;                // file to read; empty: none
    std::vector<statement> statements; // in it
    bool judge = false;                // what passes
    std::string daemon;                // program to run; empty: none
    std::string against;               // PEER=WHERE; empty: none
    unsigned seconds = 60;             // that a server under test is watched
    std::optional<std::string> page;   // [ADDRESS:]PORT, or empty for the default
    std::string viewed;                // file of the subcommand "view"
    std::string charted;               // file of the subcommand "chart"
    std::string chart;                 // file that it writes
    std::string judged;                // file of the subcommand "judge"
    std::string replayed;              // file of the subcommand "replay"
};

/// Adds all options and subcommands, which fill in `to`.
void add_options(CLI::App& app, arguments& to);

/// Completes what was parsed and checks what cannot be checked one option at a time. Throws
/// CLI::ValidationError, or input_error for the script.
void finish(arguments& given);

/// Whether lines are to have colors.
[[nodiscard]] bool wants_color(const arguments& given);

} // namespace csi_lab
