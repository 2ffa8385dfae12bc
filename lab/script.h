/// Scripts: commands as typed, and what must happen.
#pragma once

#include <chrono>
#include <cstddef>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "lab/commands.h"
#include "lab/console.h"
#include "lab/printer.h"
#include "lab/traffic.h"

namespace csi_lab {

/// A line of a script.
struct statement {
    std::size_t line;
    std::string text;                // of the line
    std::optional<pattern> expected; // of "expect"
    std::chrono::milliseconds time;  // of "expect" and "wait"; negative for a command
};

/// Reads a whole script and checks it. Throws input_error that names the wrong lines by
/// number.
[[nodiscard]] std::vector<statement>
read_script(std::istream& from, const peers::installation_options& lab, bool has_daemon);
/// The same for a file, or for standard input if the path is "-".
[[nodiscard]] std::vector<statement>
read_script(const std::string& path, const peers::installation_options& lab, bool has_daemon);

/// Runs scripts. For one thread.
class script_runner {
public:
    script_runner(const stage& on, traffic& seen, console& signals, printer& to);

    /// Executes the statements up to "quit", the end, a signal or the first expectation that fails,
    /// and then waits until the queued commands are fetched and answered. False when something is
    /// not as expected.
    [[nodiscard]] bool run(const std::vector<statement>& script);

private:
    enum class result { proceed, quit, failed };

    result execute_one(const statement& what);
    result wait(const statement& what);
    result expect(const statement& what);
    result execute_command(const statement& what);
    bool wait_for_answers();
    void report_failure(const statement& what);

    const stage on_;
    traffic& seen_;
    console& signals_;
    printer& to_;
    std::size_t next_line_ = 0; // of the traffic: the first that no expectation has passed
    std::size_t met_ = 0;       // expectations
};

} // namespace csi_lab
