// The entry point of csi_doctor: from the command line to the findings and the exit status.
#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "daemon/version.h"
#include "doctor/command_line.h"
#include "doctor/configuration_file.h"
#include "doctor/findings.h"
#include "doctor/log_checks.h"
#include "doctor/log_command.h"
#include "doctor/network_checks.h"
#include "doctor/routing_checks.h"
#include "doctor/syntax_checks.h"
#include "doctor/value_checks.h"

namespace {

constexpr int exit_failure = 2;

/// Flushes each line, for people who wait. False when it cannot be written.
bool print(const std::string& line) {
    std::cout << line << std::endl;
    return std::cout.good();
}

int report_unwritable_output() {
    std::cerr << "csi_doctor: cannot write to standard output\n";
    return exit_failure;
}

void run_checks(const csi_doctor::options& given, csi_doctor::report& findings) {
    const std::optional<std::string> text =
        csi_doctor::read_configuration_file(given.path, findings);
    if (!text) {
        return;
    }
    const csi_doctor::settings config = csi_doctor::check_syntax(*text, findings);
    if (config.empty()) {
        return;
    }
    csi_doctor::check_values(config, findings);
    csi_doctor::check_routing(config, findings);
    csi_doctor::check_log_file(config, findings);
    if (!given.offline) {
        csi_doctor::check_network(config, findings);
    }
}

/// The whole output as JSON, or the summary. False when it cannot be written.
bool print_end(const csi_doctor::options& given, std::vector<csi_doctor::finding> findings) {
    if (given.quiet) {
        const auto is_ok = [](const auto& one) { return one.severity == csi_doctor::level::ok; };
        findings.erase(std::remove_if(findings.begin(), findings.end(), is_ok), findings.end());
    }
    if (given.json) {
        return print(csi_doctor::to_json(findings));
    }
    return given.quiet || print(csi_doctor::to_summary(findings));
}

int run(const csi_doctor::options& given) {
    const bool color =
        given.color == "always" || (given.color == "auto" && isatty(STDOUT_FILENO) == 1);
    bool all_printed = true;
    csi_doctor::report findings([&](const csi_doctor::finding& made) {
        const bool shown = !given.quiet || made.severity != csi_doctor::level::ok;
        if (!given.json && shown && !print(csi_doctor::to_line(made, color))) {
            all_printed = false;
        }
    });
    run_checks(given, findings);
    if (!print_end(given, findings.all()) || !all_printed) {
        return report_unwritable_output();
    }
    return findings.exit_status();
}

} // namespace

int main(int argc, char* argv[]) {
    std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    // With standard output closed, the next file or socket would get its descriptor and the text.
    const bool is_writable = fcntl(STDOUT_FILENO, F_GETFD) != -1;
    if (!arguments.empty() && arguments.front() == "log") {
        arguments.erase(arguments.begin());
        return is_writable ? csi_doctor::run_log_command(arguments) : report_unwritable_output();
    }
    const csi_doctor::options given = csi_doctor::parse_command_line(arguments);
    if (!given.error.empty()) {
        std::cerr << "csi_doctor: " << given.error << '\n' << csi_doctor::usage;
        return exit_failure;
    }
    if (!is_writable) {
        return report_unwritable_output();
    }
    if (given.help || given.version) {
        const bool printed = print(given.help ? std::string(csi_doctor::usage) + csi_doctor::help
                                              : "csi_doctor " + csi_receiver::version());
        return printed ? 0 : report_unwritable_output();
    }
    return run(given);
}
