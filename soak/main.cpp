/// The program csi_soak: wears the daemon out and tells what became of it.
#include <chrono>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "soak/daemon.h"
#include "soak/report.h"
#include "soak/run.h"
#include "soak/worst.h"

int main(int count, char** values) {
    CLI::App app("Runs csi_receiver against the lab's peers under load and faults, and checks it.",
                 "csi_soak");
    csi_soak::soak_options options;
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
        csi_soak::block_soak_signals();
        csi_soak::soak_report report;
        if (worst_cases) {
            csi_soak::measure_worst_cases(options, std::chrono::seconds(each_state), report);
        } else {
            csi_soak::run_soak(options, report);
        }
        return report.conclude() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "csi_soak: " << failure.what() << '\n';
        return 1;
    }
}
