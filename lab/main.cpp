// The program csi_lab: plays an installation until it is told to exit.
#include <chrono>
#include <cstddef>
#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "lab/commands.h"
#include "lab/console.h"
#include "lab/printer.h"
#include "lab/status.h"
#include "peers/installation.h"
#include "peers/journal.h"

namespace {

constexpr int exit_failure = 1; // a system call failed: an address is in use, for example
constexpr int exit_usage = 2;

struct arguments {
    peers::installation_options lab;
    unsigned delay_ms = 0;
    unsigned appear_after_ms = static_cast<unsigned>(lab.times.appear_after.count());
    unsigned vanish_after_ms = static_cast<unsigned>(lab.times.vanish_after.count());
    std::string color = "auto";
    bool print_config = false;
};

/// Adds an option for a whole number. The help text ends with its range and its default, which is
/// the present value of `to`.
template<class number>
void add_number(CLI::App& app, const char* name, number& to, unsigned min, unsigned max,
                const std::string& help) {
    const std::string range = " (" + std::to_string(min) + " to " + std::to_string(max) +
                              "; default: " + std::to_string(to) + ")";
    app.add_option(name, to, help + range)->check(CLI::Range(min, max))->option_text("NUMBER");
}

void add_size_options(CLI::App& app, arguments& to) {
    add_number(app, "--zorvins", to.lab.zorvins, 1, 250,
               "Zorvins, with core services at 127.0.0.1, 127.0.0.2, ...");
    add_number(app, "--bots", to.lab.bots, 0, 10'000,
               "Bots, with the ids 101, 102, ..., assigned to the Zorvins in turn");
    app.add_option("--api", to.lab.api, "Version of the REST API: v2 (default) or v3")
        ->check(CLI::IsMember({"v2", "v3"}))
        ->option_text("VERSION");
    add_number(app, "--http-port", to.lab.http_port, 0, 65535,
               "Port of the REST server, or 0 for any free port");
    app.add_flag("--fusion", to.lab.fusion, "Also play a fusion daemon");
}

void add_fault_options(CLI::App& app, arguments& to) {
    app.add_option("--absent", to.lab.absent, "A Bot that no Zorvin hears; may be repeated")
        ->option_text("BOT")
        ->expected(1)
        ->take_all();
    app.add_option("--silent", to.lab.silent,
                   "A peer that does not answer: server, fusion, core (all core services) or "
                   "core:ADDRESS (one of them); may be repeated")
        ->option_text("PEER")
        ->expected(1)
        ->take_all();
    app.add_option("--loss", to.lab.loss, "Share of UDP requests to lose, 0 (default) to 1")
        ->check(CLI::Range(0.0, 1.0))
        ->option_text("SHARE");
    add_number(app, "--delay", to.delay_ms, 0, 600'000, "Milliseconds to wait before each answer");
    app.add_flag("--duplicate", to.lab.duplicate, "Answer each UDP request twice");
    app.add_option("--seed", to.lab.seed, "Decides which requests are lost (default: 1)")
        ->option_text("NUMBER");
}

void add_radio_options(CLI::App& app, arguments& to) {
    add_number(app, "--appear-after", to.appear_after_ms, 0, 600'000,
               "Milliseconds of sounding until a Bot is heard");
    add_number(app, "--vanish-after", to.vanish_after_ms, 0, 600'000,
               "Milliseconds without sounding until a Bot is no longer heard");
}

void add_output_options(CLI::App& app, arguments& to) {
    app.add_option("--color", to.color, "When to use color: auto (default), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->option_text("WHEN");
    app.add_flag("--print-config", to.print_config,
                 "Print the daemon's configuration for these options and exit");
}

/// Checks what CLI11 cannot check one option at a time. Throws CLI::ValidationError.
void check(const arguments& given) {
    for (const std::string& who : given.lab.silent) {
        if (!peers::has_peer(given.lab, who)) {
            throw CLI::ValidationError("--silent", "no such peer: " + who);
        }
    }
    if (!(given.lab.loss >= 0)) { // NaN passes the range check
        throw CLI::ValidationError("--loss", "not a number");
    }
    if (given.print_config && given.lab.http_port == 0) {
        throw CLI::ValidationError("--print-config", "needs a --http-port other than 0");
    }
}

bool wants_color(const std::string& color) {
    return color == "always" || (color == "auto" && isatty(STDOUT_FILENO) == 1);
}

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

void play(const arguments& given) {
    constexpr std::size_t kept_messages = 100; // they are printed, and not read again
    csi_lab::console console;
    csi_lab::printer printer(wants_color(given.color));
    peers::journal journal(kept_messages);
    journal.on_message([&printer](const peers::message& what) { printer.show(what); });
    peers::installation lab(journal, given.lab);
    greet(lab, printer);
    while (const auto line = console.next_line()) {
        const csi_lab::command_result result = csi_lab::execute(*line, lab);
        for (const std::string& shown : result.lines) {
            printer.say(shown);
        }
        if (result.quit) {
            break;
        }
    }
}

int run(const arguments& given) {
    if (given.print_config) {
        std::cout << peers::configuration(given.lab) << std::flush;
        return std::cout ? 0 : exit_failure;
    }
    play(given);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Plays the peers of csi_receiver: a REST server, core services and, if wanted, a "
                 "fusion daemon.",
                 "csi_lab");
    arguments given;
    add_size_options(app, given);
    add_fault_options(app, given);
    add_radio_options(app, given);
    add_output_options(app, given);
    try {
        app.parse(argc, argv);
        check(given);
        given.lab.delay = std::chrono::milliseconds(given.delay_ms);
        given.lab.times.appear_after = std::chrono::milliseconds(given.appear_after_ms);
        given.lab.times.vanish_after = std::chrono::milliseconds(given.vanish_after_ms);
        return run(given);
    } catch (const CLI::CallForHelp& wanted) {
        return app.exit(wanted);
    } catch (const CLI::Error& wrong) {
        std::cerr << "csi_lab: " << wrong.what() << '\n';
        return exit_usage;
    } catch (const std::exception& failure) {
        std::cerr << "csi_lab: " << failure.what() << '\n';
        return exit_failure;
    }
}
