// The program csi_lab: plays an installation until it is told to exit.
#include <algorithm>
#include <cerrno>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "lab/against.h"
#include "lab/chart.h"
#include "lab/commands.h"
#include "lab/console.h"
#include "lab/input_error.h"
#include "lab/judge.h"
#include "lab/live_page.h"
#include "lab/options.h"
#include "lab/page_server.h"
#include "lab/printer.h"
#include "lab/replay_player.h"
#include "lab/script.h"
#include "lab/session.h"
#include "lab/status.h"
#include "peers/installation.h"
#include "peers/wrong_answers.h"
#ifdef CSI_LAB_LINE_EDITING
#include "lab/line_editor.h"
#endif

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

/// The words that the line editor completes.
[[maybe_unused]] std::vector<std::string> words_for(const peers::installation_options& lab) {
    std::vector<std::string> result = csi_lab::command_words();
    for (const peers::routed_bot& bot : peers::bots_of(lab)) {
        result.push_back(bot.uuid);
    }
    for (const peers::wrong_answer_row& one : peers::wrong_answers()) {
        result.emplace_back(one.name);
    }
    for (const char* const peer : {"server", "core", "fusion", "daemon", "on", "off"}) {
        result.emplace_back(peer);
    }
    for (const char* const word : {"start", "stop", "rate", "scan", "bot_info", "poll_interval",
                                   "disconnect", "version", "associate", "pair"}) {
        result.push_back(std::string(R"({"cmd":")") + word + "\"");
    }
    std::sort(result.begin(), result.end());
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
}

/// The page, if there is one, shows what is typed and what the lab says.
template<class line_source>
void execute_lines(line_source& source, csi_lab::session& session, csi_lab::printer& printer,
                   csi_lab::live_page* page) {
    while (const auto line = source.next_line()) {
        if (page != nullptr) {
            page->feed().note("typed", *line);
        }
        const csi_lab::command_result result = csi_lab::execute(*line, session.on());
        for (const std::string& shown : result.lines) {
            printer.say(shown);
        }
        if (result.quit) {
            break;
        }
    }
}

void execute_typed(csi_lab::console& console, csi_lab::session& session, csi_lab::printer& printer,
                   csi_lab::live_page* page) {
#ifdef CSI_LAB_LINE_EDITING
    if (isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
        csi_lab::line_editor editor(console.signals(), words_for(session.lab().options()));
        printer.redirect([&editor](const std::string& line) { editor.say(line); });
        execute_lines(editor, session, printer, page);
        printer.redirect({});
        return;
    }
#endif
    execute_lines(console, session, printer, page);
}

/// Judges what passes, and reports breaches as they come. Used under the journal's lock.
class live_judge {
public:
    explicit live_judge(csi_lab::printer& to)
        : to_(to) {}

    void note(const csi_lab::entry& what) {
        for (const csi_lab::finding& found : judge_.next(what)) {
            for (const std::string& line : csi_lab::describe(found)) {
                to_.say("BREACH  " + line);
            }
        }
    }

    [[nodiscard]] bool report() {
        to_.say(judge_.summary());
        return judge_.breaches() == 0;
    }

private:
    csi_lab::printer& to_;
    csi_lab::judge judge_;
};

/// False when something was not as a script expects.
bool play_until_end(const csi_lab::arguments& given, csi_lab::console& console,
                    csi_lab::printer& printer, const csi_lab::session::observer& watch) {
    std::optional<csi_lab::live_page> page;
    if (given.page) {
        page.emplace(csi_lab::parse_page_address(*given.page));
    }
    csi_lab::live_page* const shown = page ? &*page : nullptr;
    csi_lab::session session(
        given, printer,
        [&](const csi_lab::entry& what) {
            if (shown != nullptr) {
                shown->feed().add(what);
            }
            if (watch) {
                watch(what);
            }
        },
        [shown](const std::string& kind, const std::string& text) {
            if (shown != nullptr) {
                shown->feed().note(kind, text);
            }
        });
    if (given.script.empty()) {
        greet(session.lab(), printer);
    }
    if (!given.daemon.empty()) {
        session.run_daemon(given.daemon);
    }
    std::optional<csi_lab::live_page::serving> serving;
    if (page) {
        serving.emplace(*page, session, printer);
    }
    if (given.script.empty()) {
        execute_typed(console, session, printer, shown);
        return true;
    }
    csi_lab::script_runner runner(session.on(), session.seen(), console, printer);
    return runner.run(given.statements);
}

int play(const csi_lab::arguments& given) {
    csi_lab::console console;
    csi_lab::printer printer(csi_lab::wants_color(given), given.json);
    live_judge judge(printer);
    csi_lab::session::observer watch;
    if (given.judge) {
        watch = [&judge](const csi_lab::entry& what) { judge.note(what); };
    }
    const bool expected = play_until_end(given, console, printer, watch);
    const bool judged = !given.judge || judge.report();
    return expected && judged ? 0 : exit_unexpected;
}

int run(const csi_lab::arguments& given) {
    if (given.print_config) {
        std::cout << peers::configuration(given.lab) << std::flush;
        return std::cout ? 0 : exit_failure;
    }
    if (!given.judged.empty()) {
        return csi_lab::judge_recording(given.judged);
    }
    if (!given.viewed.empty()) {
        return csi_lab::view_recording(given.viewed,
                                       csi_lab::parse_page_address(given.page.value_or("")));
    }
    if (!given.charted.empty()) {
        csi_lab::write_chart(given.charted, given.chart);
        return 0;
    }
    if (!given.against.empty()) {
        return csi_lab::test_peer(given);
    }
    if (!given.replayed.empty()) {
        return csi_lab::replay_recording(given);
    }
    return play(given);
}

/// What people can do about the failure, as another line; empty if nothing is known.
std::string advice(const std::string& failure) {
    if (failure.find(std::generic_category().message(EADDRINUSE)) == std::string::npos) {
        return "";
    }
    const bool is_udp = failure.find(" port 1431") != std::string::npos;
    return std::string("csi_lab: end the program that uses it, perhaps another csi_lab (ss -") +
           (is_udp ? "ulnp shows it), or leave the peer out: --without"
                   : "tlnp shows it), or choose another port: --http-port, --page") +
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
