/// The program csi_soak: wears the daemon out and tells what became of it.
#include "lab/soak_daemon.h"
#include "lab/soak_report.h"
#include "lab/soak_run.h"
#include "lab/soak_worst.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <exception>
#include <iostream>

int main(int count, char** values) {
    CLI::App app("Runs csi_receiver against the lab's peers under load and faults, and checks it.",
                 "csi_soak");
    csi_lab::soak_options options;
    app.add_option("--daemon", options.daemon, "The program csi_receiver")->required();
    app.add_option("--folder", options.folder, "An empty folder for its files")->required();
    app.add_option("--minutes", options.minutes, "How long")
        ->check(CLI::Range(0.25, 100'000.0))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "Of commands and faults")->capture_default_str();
    bool worst_cases = false;
    app.add_flag("--worst-cases", worst_cases, "Measure the worst cases instead");
    long each_state = 120;
    app.add_option("--each-state", each_state, "Seconds for each state in which the log grows")
        ->check(CLI::Range(1, 100'000))
        ->capture_default_str();
    CLI11_PARSE(app, count, values);
    try {
        csi_lab::block_soak_signals();
        csi_lab::soak_report report;
        if (worst_cases) {
            csi_lab::measure_worst_cases(options, std::chrono::seconds(each_state), report);
        } else {
            csi_lab::run_soak(options, report);
        }
        return report.conclude() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "csi_soak: " << failure.what() << '\n';
        return 1;
    }
}
