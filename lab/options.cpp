#include "lab/options.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <utility>

#include <unistd.h>

#include "daemon/version.h"
#include "lab/chart.h"
#include "lab/page_server.h"
#include "lab/relay.h"

namespace csi_lab {
namespace {

/// Adds an option for a whole number. The help text ends with its range and its default, which is
/// the present value of `to`.
template<class number>
void add_number(CLI::App& app, const char* name, number& to, unsigned min, unsigned max,
                const std::string& help) {
    const std::string range = " (" + std::to_string(min) + " to " + std::to_string(max) +
                              "; default: " + std::to_string(to) + ")";
    app.add_option(name, to, help + range)->check(CLI::Range(min, max))->option_text("NUMBER");
}

/// Adds an option with a value that may be repeated.
template<class list>
void add_list(CLI::App& app, const char* name, list& to, const char* value,
              const std::string& help) {
    app.add_option(name, to, help + "; may be repeated")
        ->option_text(value)
        ->expected(1)
        ->take_all();
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
    add_list(app, "--without", to.lab.without, "PEER",
             "Do not play this peer, because a real one is there: server, fusion, core, "
             "core:ADDRESS");
}

void add_fault_options(CLI::App& app, arguments& to) {
    add_list(app, "--absent", to.lab.absent, "BOT", "A Bot that no Zorvin hears");
    add_list(app, "--silent", to.lab.silent, "PEER",
             "A peer that does not answer: server, fusion, core (all core services) or "
             "core:ADDRESS (one of them)");
    add_list(app, "--wrong", to.lab.wrong, "PEER=KIND",
             "A peer with wrong answers; for the kinds see the command help");
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
    app.add_flag("-q,--quiet", to.quiet, "Do not show messages");
    app.add_flag("--json", to.json,
                 "Show messages as lines of a recording; everything else goes to standard error");
    add_list(app, "--only", to.only, "WORD",
             "Show only messages with this peer, label, command or engine type");
    add_list(app, "--not", to.except, "WORD", "Do not show messages with this word");
    app.add_option("--record", to.record, "Write a recording of all messages to this file")
        ->option_text("FILE");
    app.add_flag("--print-config", to.print_config,
                 "Print the daemon's configuration for these options and exit");
    app.set_version_flag("--version", "csi_lab " + csi_receiver::version(),
                         "Print the version and exit");
}

void add_run_options(CLI::App& app, arguments& to) {
    app.add_option("--script", to.script,
                   "Run the commands and check the expectations in this file, or in standard "
                   "input if it is -")
        ->option_text("FILE");
    app.add_flag("--judge", to.judge, "Check each message against the protocol");
    app.add_option("--daemon", to.daemon, "Start this daemon with the matching configuration")
        ->option_text("PATH");
    app.add_option(
           "--page", to.page,
           "Serve a page with the conversation and all commands, at 127.0.0.1 and port 8088 "
           "unless something else is given")
        ->expected(0, 1)
        ->option_text("[[ADDRESS:]PORT]");
    app.add_option("--against", to.against,
                   "Test this peer: core=ADDRESS[:PORT], fusion=ADDRESS[:PORT] or server=URL")
        ->option_text("PEER=WHERE");
    add_number(app, "--seconds", to.seconds, 1, 86400,
               "How long --against server=URL watches the server");
}

void add_subcommands(CLI::App& app, arguments& to) {
    CLI::App* const judge =
        app.add_subcommand("judge", "Check the messages of a recording against the protocol");
    judge->add_option("FILE", to.judged, "The recording, or - for standard input")->required();
    CLI::App* const replay =
        app.add_subcommand("replay", "Play the peers of a recording towards a daemon");
    replay->add_option("FILE", to.replayed, "The recording, or - for standard input")->required();
    CLI::App* const view = app.add_subcommand("view", "Serve the page of --page for a recording");
    view->add_option("FILE", to.viewed, "The recording, or - for standard input")->required();
    CLI::App* const chart =
        app.add_subcommand("chart", "Write the sequence chart of a recording to a file");
    chart->add_option("FILE", to.charted, "The recording, or - for standard input")->required();
    chart
        ->add_option("-o,--output", to.chart,
                     "The file to write: a page if its name ends in .html, a picture if in .svg")
        ->required()
        ->option_text("FILE");
    for (CLI::App* const subcommand : {judge, replay, view, chart}) {
        subcommand->fallthrough(); // the options above may follow
    }
    app.require_subcommand(0, 1);
}

/// Throws CLI::ValidationError with the text of what the function throws.
template<class function>
void validate(const char* option, const function& check) {
    try {
        check();
    } catch (const std::runtime_error& wrong) {
        throw CLI::ValidationError(option, wrong.what());
    }
}

void check_faults(const arguments& given) {
    for (const std::string& who : given.lab.silent) {
        if (!peers::has_peer(given.lab, who)) {
            throw CLI::ValidationError("--silent", "no such peer: " + who);
        }
    }
    for (const std::string& bot : given.lab.absent) {
        validate("--absent", [&] { peers::check_bot(given.lab, bot); });
    }
    for (const std::string& wrong : given.lab.wrong) {
        validate("--wrong", [&] { peers::check_wrong(given.lab, wrong); });
    }
    if (std::isnan(given.lab.loss)) { // passes the range check
        throw CLI::ValidationError("--loss", "not a number");
    }
}

/// Throws CLI::ValidationError for an option that the walk through the protocol decides itself.
void check_against(const arguments& given) {
    if (given.against.empty()) {
        return;
    }
    validate("--against", [&] { static_cast<void>(parse_target(given.against)); });
    for (const auto& [name, is_given] : {std::pair{"--script", !given.script.empty()},
                                         {"--without", !given.lab.without.empty()},
                                         {"--print-config", given.print_config},
                                         {"--judge", given.judge},
                                         {"--page", given.page.has_value()},
                                         {"judge", !given.judged.empty()},
                                         {"replay", !given.replayed.empty()}}) {
        if (is_given) {
            throw CLI::ValidationError("--against", std::string("excludes ") + name);
        }
    }
}

void check_page(const arguments& given) {
    const bool plays = given.judged.empty() && given.replayed.empty() && given.charted.empty() &&
                       given.against.empty() && !given.print_config;
    if (given.page && !plays) {
        throw CLI::ValidationError("--page",
                                   "shows only what the lab plays, or a recording with view");
    }
    if (given.page) {
        validate("--page", [&] { static_cast<void>(parse_page_address(*given.page)); });
    }
    if (!given.chart.empty()) {
        validate("--output", [&] { static_cast<void>(chart_format_of(given.chart)); });
    }
}

void check_without(const arguments& given) {
    peers::installation_options all = given.lab;
    all.without.clear();
    all.fusion = true;
    for (const std::string& who : given.lab.without) {
        if (!peers::has_peer(all, who)) {
            throw CLI::ValidationError("--without", "no such peer: " + who);
        }
    }
}

} // namespace

void add_options(CLI::App& app, arguments& to) {
    add_size_options(app, to);
    add_fault_options(app, to);
    add_radio_options(app, to);
    add_output_options(app, to);
    add_run_options(app, to);
    add_subcommands(app, to);
}

void finish(arguments& given) {
    check_without(given);
    check_faults(given);
    if (given.print_config && given.lab.http_port == 0) {
        throw CLI::ValidationError("--print-config", "needs a --http-port other than 0");
    }
    if (given.json && given.quiet) {
        throw CLI::ValidationError("--json", "excludes --quiet");
    }
    check_against(given);
    check_page(given);
    if (!given.script.empty()) {
        given.statements = read_script(given.script, given.lab, !given.daemon.empty());
    }
    given.lab.delay = std::chrono::milliseconds(given.delay_ms);
    given.lab.times.appear_after = std::chrono::milliseconds(given.appear_after_ms);
    given.lab.times.vanish_after = std::chrono::milliseconds(given.vanish_after_ms);
}

bool wants_color(const arguments& given) {
    const char* const no_color = std::getenv("NO_COLOR");
    const bool allowed = no_color == nullptr || *no_color == '\0';
    return given.color == "always" ||
           (given.color == "auto" && allowed && isatty(STDOUT_FILENO) == 1);
}

} // namespace csi_lab
