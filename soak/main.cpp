// The program csi_soak: runs the daemon under load and faults, and reports how it copes.
#include <chrono>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "soak/daemon_process.h"
#include "soak/days.h"
#include "soak/report.h"
#include "soak/run.h"
#include "soak/worst_cases.h"

int main(int argc, char** argv) {
    CLI::App app("Runs csi_receiver under load and faults, and checks it.", "csi_soak");
    csi_soak::run_options options;
    app.add_option("--daemon", options.daemon, "Path of the program csi_receiver")->required();
    app.add_option("--folder", options.folder, "Empty folder for files")->required();
    app.add_option("--minutes", options.minutes, "Duration")
        ->check(CLI::Range(0.25, 100'000.0))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "Seed for commands and faults")->capture_default_str();
    app.add_option("--samples", options.samples,
                   "CSV file for what the daemon uses in each second, and for the faults");
    bool worst_cases = false;
    app.add_flag("--worst-cases", worst_cases, "Measure the worst cases instead");
    long each_state = 20;
    app.add_option("--each-state", each_state,
                   "With --worst-cases: seconds to measure how fast the log grows, in each state")
        ->check(CLI::Range(1, 100'000))
        ->capture_default_str();
    csi_soak::days_options days;
    app.add_option("--days", days.days, "Simulate this many days instead")
        ->check(CLI::Range(0.25, 10'000.0));
    app.add_option("--clock-library", days.clock_library, "Path of libfaketime, with --days")
        ->check(CLI::ExistingFile);
    CLI11_PARSE(app, argc, argv);
    try {
        csi_soak::block_signals();
        csi_soak::reporter report;
        if (worst_cases) {
            csi_soak::measure_worst_cases(options, std::chrono::seconds(each_state), report);
        } else if (!days.clock_library.empty()) {
            csi_soak::run_days(options, days, report);
        } else {
            csi_soak::run_soak(options, report);
        }
        return report.conclude() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "csi_soak: " << failure.what() << '\n';
        return 1;
    }
}
