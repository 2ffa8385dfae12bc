// The program csi_lab: plays an installation until it is told to exit.
#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "lab/commands.h"
#include "lab/console.h"
#include "lab/input_error.h"
#include "lab/options.h"
#include "lab/printer.h"
#include "lab/replay_player.h"
#include "lab/script.h"
#include "lab/session.h"
#include "lab/status.h"
#include "peers/installation.h"

namespace {

constexpr int exit_failure = 1; // a system call failed: an address is in use, for example
constexpr int exit_unexpected = 1;
constexpr int exit_usage = 2;

void greet(peers::installation& lab, csi_lab::printer& to) {
    to.say("csi_lab plays:");
    for (const std::string& line : csi_lab::describe_addresses(lab)) {
        to.say("  " + line);
    }
    to.say("Commands:");
    for (const std::string& line : csi_lab::command_help()) {
        to.say(line);
    }
}

void execute_typed(csi_lab::console& console, csi_lab::session& session,
                   csi_lab::printer& printer) {
    while (const auto line = console.next_line()) {
        const csi_lab::command_result result = csi_lab::execute(*line, session.on());
        for (const std::string& shown : result.lines) {
            printer.say(shown);
        }
        if (result.quit) {
            break;
        }
    }
}

int play(const csi_lab::arguments& given) {
    csi_lab::console console;
    csi_lab::printer printer(csi_lab::wants_color(given), given.json);
    csi_lab::session session(given, printer, {});
    if (given.script.empty()) {
        greet(session.lab(), printer);
    }
    if (!given.daemon.empty()) {
        session.run_daemon(given.daemon);
    }
    if (given.script.empty()) {
        execute_typed(console, session, printer);
        return 0;
    }
    csi_lab::script_runner runner(session.on(), session.seen(), console, printer);
    return runner.run(given.statements) ? 0 : exit_unexpected;
}

int run(const csi_lab::arguments& given) {
    if (given.print_config) {
        std::cout << peers::configuration(given.lab) << std::flush;
        return std::cout ? 0 : exit_failure;
    }
    if (!given.replayed.empty()) {
        return csi_lab::replay_recording(given);
    }
    return play(given);
}

/// What people can do about the failure, as another line; empty if nothing is known.
std::string advice(const std::string& failure) {
    if (failure.find("Address already in use") == std::string::npos) {
        return "";
    }
    const bool is_udp = failure.find(" port 1431") != std::string::npos;
    return std::string("csi_lab: end the program that uses it, perhaps another csi_lab (ss -") +
           (is_udp ? "ulnp shows it), or leave the peer out: --without"
                   : "tlnp shows it), or choose another port: --http-port") +
           "\n";
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Plays the peers of csi_receiver: a REST server, core services and, if wanted, a "
                 "fusion daemon.",
                 "csi_lab");
    csi_lab::arguments given;
    csi_lab::add_options(app, given);
    try {
        app.parse(argc, argv);
        csi_lab::finish(given);
        return run(given);
    } catch (const CLI::Success& wanted) {
        return app.exit(wanted);
    } catch (const csi_lab::input_error& wrong) {
        std::cerr << "csi_lab: " << wrong.what() << '\n';
        return exit_usage;
    } catch (const CLI::Error& wrong) {
        std::cerr << "csi_lab: " << wrong.what() << '\n';
        return exit_usage;
    } catch (const std::exception& failure) {
        std::cerr << "csi_lab: " << failure.what() << '\n' << advice(failure.what());
        return exit_failure;
    }
}
