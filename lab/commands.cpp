#include "lab/commands.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "lab/status.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

using words = std::vector<std::string>;
using options = peers::installation_options;

command_result say(const std::string& line) {
    return {{line}, false};
}

/// Wrong usage: the text is the command's usage, which the caller knows.
struct wrong_usage : std::exception {};

void require(bool fits_usage) {
    if (!fits_usage) {
        throw wrong_usage();
    }
}

void require_peer(const options& lab, const std::string& who) {
    if (!peers::has_peer(lab, who)) {
        throw std::runtime_error("no such peer: " + who);
    }
}

double number_up_to(const std::string& text, double max, const char* what) {
    char* end = nullptr;
    const double result = std::strtod(text.c_str(), &end);
    require(!text.empty() && *end == '\0' && !std::isnan(result));
    if (result < 0 || result > max) {
        throw std::runtime_error(std::string(what) + " must be 0 to " +
                                 (max > 1 ? std::to_string(static_cast<long>(max)) : "1"));
    }
    return result;
}

void check_bot(const words& typed, const options& lab) {
    require(typed.size() == 2);
    peers::check_bot(lab, typed[1]);
}

command_result set_present(const words& typed, const stage& on) {
    on.lab.set_present(typed[1], typed[0] == "present");
    return say("Bot " + typed[1] + " is " + typed[0]);
}

void check_silent(const words& typed, const options& lab) {
    require(typed.size() == 2 || (typed.size() == 3 && (typed[2] == "on" || typed[2] == "off")));
    require_peer(lab, typed[1]);
}

command_result set_silent(const words& typed, const stage& on) {
    static_cast<void>(on.lab.set_silent(typed[1], typed.back() != "off"));
    return say("done");
}

void check_wrong(const words& typed, const options& lab) {
    require(typed.size() == 3);
    peers::check_wrong(lab, typed[1] + "=" + typed[2]);
}

command_result set_wrong(const words& typed, const stage& on) {
    on.lab.set_wrong(typed[1], typed[2]);
    return say("done");
}

void check_delay(const words& typed, const options& lab) {
    require(typed.size() == 2 || typed.size() == 3);
    if (typed.size() == 3) {
        require_peer(lab, typed[2]);
    }
    static_cast<void>(number_up_to(typed[1], 600'000, "the milliseconds"));
}

command_result set_delay(const words& typed, const stage& on) {
    const std::chrono::milliseconds whole(std::strtol(typed[1].c_str(), nullptr, 10));
    const std::string time = std::to_string(whole.count());
    if (typed.size() == 3) {
        static_cast<void>(on.lab.set_delay(typed[2], whole));
        return say(typed[2] + " now waits " + time + " ms before it answers");
    }
    on.lab.set_delay(whole);
    return say("all peers now wait " + time + " ms before they answer");
}

void check_loss(const words& typed, const options& /*lab*/) {
    require(typed.size() == 2);
    static_cast<void>(number_up_to(typed[1], 1, "the share"));
}

command_result set_loss(const words& typed, const stage& on) {
    on.lab.set_loss(std::strtod(typed[1].c_str(), nullptr));
    return say("the share of lost UDP requests is now " + typed[1]);
}

void check_running(const words& typed, const options& lab) {
    require(typed.size() == 2);
    require_peer(lab, typed[1]);
}

command_result set_running(const words& typed, const stage& on) {
    static_cast<void>(typed[0] == "start" ? on.lab.start(typed[1]) : on.lab.stop(typed[1]));
    return say("done");
}

command_result run_daemon(bool start, daemon_runner& daemon) {
    if (start) {
        return say(daemon.start() ? "the daemon is started" : "the daemon runs already");
    }
    const std::string end = daemon.stop();
    return say(end.empty() ? "the daemon does not run" : "the daemon " + end);
}

void check_text(const words& /*typed*/, const options& /*lab*/) {}

command_result repeat(const words& typed, const stage& /*on*/) {
    std::string line;
    for (auto word = typed.begin() + 1; word != typed.end(); ++word) {
        line += (line.empty() ? "" : " ") + *word;
    }
    return say(line);
}

void check_single(const words& typed, const options& /*lab*/) {
    require(typed.size() == 1);
}

command_result state(const words& /*typed*/, const stage& on) {
    return {describe_state(on.lab), false};
}

command_result help(const words& /*typed*/, const stage& /*on*/) {
    return {command_help(), false};
}

command_result quit(const words& /*typed*/, const stage& /*on*/) {
    return {{}, true};
}

struct row {
    std::string_view word;
    std::string_view usage;
    std::string_view meaning;
    void (*check)(const words&, const options&); // throws when the words are wrong
    command_result (*run)(const words&, const stage&);
};

constexpr std::array<row, 12> table{{
    {"absent", "absent BOT", "take the Bot away: no Zorvin hears it", check_bot, set_present},
    {"present", "present BOT", "bring the Bot back", check_bot, set_present},
    {"silent", "silent PEER [on|off]", "let the peer read requests but not answer", check_silent,
     set_silent},
    {"wrong", "wrong PEER KIND", "let the peer give wrong answers; KIND off ends it", check_wrong,
     set_wrong},
    {"delay", "delay MS [PEER]", "let one peer, or all, wait before they answer", check_delay,
     set_delay},
    {"loss", "loss SHARE", "lose this share of all UDP requests, 0 to 1", check_loss, set_loss},
    {"stop", "stop PEER", "close the peer's port", check_running, set_running},
    {"start", "start PEER", "open it again", check_running, set_running},
    {"say", "say TEXT", "show this text", check_text, repeat},
    {"state", "state", "show what each peer is doing", check_text, state},
    {"help", "help", "show this list", check_text, help},
    {"quit", "quit", "exit, as on SIGINT or SIGTERM", check_single, quit},
}};

words split(const std::string& line) {
    std::istringstream from(line);
    words result;
    std::string word;
    while (from >> word) {
        result.push_back(word);
    }
    return result;
}

bool is_json_command(const words& typed) {
    return typed[0].front() == '{' || typed[0].front() == '[';
}

bool is_raw(const words& typed) {
    return typed[0] == "raw";
}

bool starts_or_stops_daemon(const words& typed) {
    return typed.size() == 2 && typed[1] == "daemon" && (typed[0] == "start" || typed[0] == "stop");
}

std::string unknown_command(const words& typed) {
    const bool lacks_braces = typed[0].front() == '"';
    return (lacks_braces ? typed[0] : "\"" + typed[0] + "\"") + " is neither JSON nor a command; " +
           (lacks_braces ? "a JSON command needs braces around it" : "try help");
}

/// Throws like the checks in the table.
void check_words(const words& typed, const options& lab) {
    const auto* found = std::find_if(table.begin(), table.end(),
                                     [&](const row& one) { return one.word == typed[0]; });
    if (found == table.end()) {
        throw std::runtime_error(unknown_command(typed));
    }
    try {
        found->check(typed, lab);
    } catch (const wrong_usage&) {
        throw std::runtime_error("usage: " + std::string(found->usage));
    }
}

std::string check_queued(const words& typed, const std::string& line, const options& lab) {
    if (!peers::plays(lab, "server")) {
        return "the lab does not play the server, which sends the commands";
    }
    if (!is_raw(typed) && json::parse(line).IsNull()) {
        return "not JSON, perhaps a brace is missing; \"raw TEXT\" queues it as it is";
    }
    return "";
}

/// What follows the word "raw" and one blank.
std::string text_after_raw(const std::string& line) {
    const std::size_t after = line.find("raw") + 3;
    return line.substr(std::min(after + 1, line.size()));
}

command_result queue(const std::string& text, const stage& on) {
    on.lab.server().queue(text);
    return say("queued, " + std::to_string(on.lab.server().queued()) + " waiting");
}

command_result run_checked(const words& typed, const std::string& line, const stage& on) {
    if (is_json_command(typed) || is_raw(typed)) {
        return queue(is_raw(typed) ? text_after_raw(line) : line, on);
    }
    if (on.daemon != nullptr && starts_or_stops_daemon(typed)) {
        return run_daemon(typed[0] == "start", *on.daemon);
    }
    const auto* found = std::find_if(table.begin(), table.end(),
                                     [&](const row& one) { return one.word == typed[0]; });
    return found->run(typed, on);
}

} // namespace

std::string check_command(const std::string& line, const peers::installation_options& lab,
                          bool has_daemon) {
    const words typed = split(line);
    if (typed.empty()) {
        return "";
    }
    if (is_json_command(typed) || is_raw(typed)) {
        return check_queued(typed, line, lab);
    }
    if (starts_or_stops_daemon(typed)) {
        return has_daemon ? "" : "the lab does not run the daemon; see --daemon";
    }
    try {
        check_words(typed, lab);
    } catch (const std::runtime_error& wrong) {
        return wrong.what();
    }
    return "";
}

command_result execute(const std::string& line, const stage& on) {
    const words typed = split(line);
    if (typed.empty()) {
        return {};
    }
    const std::string wrong = check_command(line, on.lab.options(), on.daemon != nullptr);
    if (!wrong.empty()) {
        return say(wrong);
    }
    try {
        return run_checked(typed, line, on);
    } catch (const std::exception& failure) {
        return say(failure.what());
    }
}

std::vector<std::string> command_words() {
    std::vector<std::string> result{"raw"};
    for (const row& one : table) {
        result.emplace_back(one.word);
    }
    return result;
}

std::vector<std::string> command_help() {
    std::vector<std::string> result{
        "  {...} or [...]        queue this JSON text as the next command for the daemon",
        "  raw TEXT              queue this text, which need not be JSON"};
    for (const row& one : table) {
        std::string line = "  " + std::string(one.usage);
        line.resize(24, ' ');
        result.push_back(line + std::string(one.meaning));
    }
    result.emplace_back("PEER is server, fusion, core for all core services, or core:ADDRESS for "
                        "one of them; for stop");
    result.emplace_back("and start it may be daemon, with --daemon. KIND is one of:");
    for (const peers::wrong_answer_row& one : peers::wrong_answers()) {
        std::string line = "  " + std::string(one.name);
        line.resize(12, ' ');
        result.push_back(line + std::string(one.meaning) + " (" + std::string(one.peers) + ")");
    }
    return result;
}

} // namespace csi_lab
