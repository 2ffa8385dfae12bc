/// The program csi_lab: plays an installation until it is told to end.
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "lab/commands.h"
#include "lab/console.h"
#include "lab/printer.h"
#include "peers/installation.h"
#include "peers/journal.h"

namespace {

constexpr int exit_failure = 1; ///< The system refused something: an address, a descriptor.
constexpr int exit_usage = 2;

struct arguments {
    peers::installation_options lab;
    unsigned delay = 0;
    unsigned appear_after = 1500;
    unsigned vanish_after = 3000;
    std::string color = "auto";
    bool print_config = false;
};

void add_size_options(CLI::App& app, arguments& to) {
    app.add_option("--zorvins", to.lab.zorvins, "Core services, at 127.0.0.1, 127.0.0.2, ...")
        ->check(CLI::Range(1, 250))
        ->capture_default_str();
    app.add_option("--bots", to.lab.bots, "Bots 101, 102, ..., dealt out to the Zorvins")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    app.add_option("--api", to.lab.api, "Version of the REST API")
        ->check(CLI::IsMember({"v2", "v3"}))
        ->capture_default_str();
    app.add_option("--http-port", to.lab.http_port, "Port of the REST server; 0: any free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_flag("--fusion", to.lab.fusion, "Play a fusion daemon, too");
}

void add_fault_options(CLI::App& app, arguments& to) {
    app.add_option("--absent", to.lab.absent, "A Bot that is not heard; may be repeated")
        ->type_name("BOT")
        ->expected(1)
        ->take_all();
    app.add_option("--silent", to.lab.silent,
                   "A peer that does not answer: server, fusion, core or core:ADDRESS; may be "
                   "repeated")
        ->type_name("PEER")
        ->expected(1)
        ->take_all();
    app.add_option("--loss", to.lab.loss, "Share of UDP requests that are lost")
        ->check(CLI::Range(0.0, 1.0));
    app.add_option("--delay", to.delay, "Wait before each answer, in milliseconds")
        ->check(CLI::Range(0, 600'000));
    app.add_flag("--duplicate", to.lab.duplicate, "Answer UDP requests twice");
    app.add_option("--seed", to.lab.seed, "Of the losses")->capture_default_str();
}

void add_radio_options(CLI::App& app, arguments& to) {
    app.add_option("--appear-after", to.appear_after,
                   "Milliseconds of sounding until a Bot is heard")
        ->check(CLI::Range(0, 600'000))
        ->capture_default_str();
    app.add_option("--vanish-after", to.vanish_after,
                   "Milliseconds without sounding until it is not heard any more")
        ->check(CLI::Range(0, 600'000))
        ->capture_default_str();
}

void add_output_options(CLI::App& app, arguments& to) {
    app.add_option("--color", to.color, "Colors: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
    app.add_flag("--print-config", to.print_config,
                 "Print the daemon's configuration for these options and exit");
}

/// What the options cannot check one by one. Throws CLI::ValidationError.
void check(const arguments& given) {
    for (const std::string& who : given.lab.silent) {
        if (peers::peers_named(given.lab, who).empty()) {
            throw CLI::ValidationError("--silent", "there is no peer " + who);
        }
    }
    if (!(given.lab.loss >= 0)) { // No number is not out of range, either.
        throw CLI::ValidationError("--loss", "no number");
    }
    if (given.print_config && given.lab.http_port == 0) {
        throw CLI::ValidationError("--print-config",
                                   "needs a --http-port: 0 is chosen only when the lab runs");
    }
}

bool wants_color(const std::string& color) {
    return color == "always" || (color == "auto" && isatty(STDOUT_FILENO) == 1);
}

void greet(const peers::installation& lab, csi_lab::printer& to) {
    to.say("csi_lab plays");
    for (const std::string& line : lab.listening()) {
        to.say("  " + line);
    }
    to.say("Type");
    for (const std::string& line : csi_lab::command_help()) {
        to.say(line);
    }
}

void play(const arguments& given) {
    constexpr std::size_t kept_messages = 100; // Nobody looks back: they are printed.
    csi_lab::console console;
    csi_lab::printer printer(wants_color(given.color));
    peers::journal journal(kept_messages);
    journal.on_message([&printer](const peers::message& what) { printer.show(what); });
    peers::installation lab(journal, given.lab);
    greet(lab, printer);
    while (const auto line = console.next_line()) {
        const csi_lab::typed_answer answer = csi_lab::carry_out(*line, lab);
        for (const std::string& shown : answer.lines) {
            printer.say(shown);
        }
        if (answer.quit) {
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

int main(int count, char** values) {
    CLI::App app("Plays a whole installation for csi_receiver: its REST server, its core services "
                 "and its fusion daemon.",
                 "csi_lab");
    arguments given;
    add_size_options(app, given);
    add_fault_options(app, given);
    add_radio_options(app, given);
    add_output_options(app, given);
    try {
        app.parse(count, values);
        check(given);
        given.lab.delay = std::chrono::milliseconds(given.delay);
        given.lab.times.appear_after = std::chrono::milliseconds(given.appear_after);
        given.lab.times.vanish_after = std::chrono::milliseconds(given.vanish_after);
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
