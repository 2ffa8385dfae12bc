#include "lab/commands.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <optional>
#include <sstream>
#include <string_view>

#include "lab/status.h"

namespace csi_lab {
namespace {

using words = std::vector<std::string>;
/// nullopt when the words do not fit the command's usage.
using outcome = std::optional<command_result>;

command_result say(const std::string& line) {
    return {{line}, false};
}

command_result confirm(bool found, const std::string& who) {
    return say(found ? "done" : "no such peer: " + who);
}

std::optional<double> parse_number(const std::string& text, double max) {
    char* end = nullptr;
    const double result = std::strtod(text.c_str(), &end);
    const bool valid = !text.empty() && *end == '\0' && result >= 0 && result <= max;
    return valid ? std::optional(result) : std::nullopt;
}

outcome set_present(const words& typed, peers::installation& lab) {
    if (typed.size() != 2) {
        return std::nullopt;
    }
    lab.set_present(typed[1], typed[0] == "present");
    return say("Bot " + typed[1] + " is " + typed[0]);
}

outcome set_silent(const words& typed, peers::installation& lab) {
    const bool valid =
        typed.size() == 2 || (typed.size() == 3 && (typed[2] == "on" || typed[2] == "off"));
    if (!valid) {
        return std::nullopt;
    }
    return confirm(lab.set_silent(typed[1], typed.back() != "off"), typed[1]);
}

outcome set_delay(const words& typed, peers::installation& lab) {
    const auto delay = typed.size() == 2 ? parse_number(typed[1], 600'000) : std::nullopt;
    if (!delay) {
        return std::nullopt;
    }
    const std::chrono::milliseconds whole(static_cast<long>(*delay));
    lab.set_delay(whole);
    return say("all peers now wait " + std::to_string(whole.count()) + " ms before they answer");
}

outcome set_loss(const words& typed, peers::installation& lab) {
    const auto share = typed.size() == 2 ? parse_number(typed[1], 1) : std::nullopt;
    if (!share) {
        return std::nullopt;
    }
    lab.set_loss(*share);
    return say("the share of lost UDP requests is now " + typed[1]);
}

outcome set_running(const words& typed, peers::installation& lab) {
    if (typed.size() != 2) {
        return std::nullopt;
    }
    return confirm(typed[0] == "start" ? lab.start(typed[1]) : lab.stop(typed[1]), typed[1]);
}

outcome state(const words& /*typed*/, peers::installation& lab) {
    return command_result{describe_state(lab), false};
}

outcome help(const words& /*typed*/, peers::installation& /*lab*/) {
    return command_result{command_help(), false};
}

outcome quit(const words& /*typed*/, peers::installation& /*lab*/) {
    return command_result{{}, true};
}

struct row {
    std::string_view word;
    std::string_view usage;
    std::string_view meaning;
    outcome (*run)(const words&, peers::installation&);
};

constexpr std::array<row, 10> table{{
    {"absent", "absent BOT", "take the Bot away: no Zorvin hears it", set_present},
    {"present", "present BOT", "bring the Bot back", set_present},
    {"silent", "silent PEER [on|off]", "let the peer read requests but not answer", set_silent},
    {"delay", "delay MS", "let all peers wait before they answer", set_delay},
    {"loss", "loss SHARE", "lose this share of all UDP requests, 0 to 1", set_loss},
    {"stop", "stop PEER", "close the peer's port", set_running},
    {"start", "start PEER", "open it again", set_running},
    {"state", "state", "show what each peer is doing", state},
    {"help", "help", "show this list", help},
    {"quit", "quit", "exit, as on SIGINT or SIGTERM", quit},
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

command_result queue(const std::string& text, peers::installation& lab) {
    lab.server().queue(text);
    return say("queued, " + std::to_string(lab.server().queued()) + " waiting");
}

command_result run_command(const words& typed, peers::installation& lab) {
    const auto* found = std::find_if(table.begin(), table.end(),
                                     [&](const row& one) { return one.word == typed[0]; });
    if (found == table.end()) {
        return say("\"" + typed[0] + "\" is neither JSON nor a command; try help");
    }
    const outcome result = found->run(typed, lab);
    return result ? *result : say("usage: " + std::string(found->usage));
}

} // namespace

command_result execute(const std::string& line, peers::installation& lab) {
    const words typed = split(line);
    if (typed.empty()) {
        return {};
    }
    if (typed[0].front() == '{' || typed[0].front() == '[') {
        return queue(line, lab);
    }
    if (typed[0] == "raw") {
        const std::size_t after = line.find("raw") + 3;
        return queue(line.substr(std::min(after + 1, line.size())), lab);
    }
    try {
        return run_command(typed, lab);
    } catch (const std::exception& failure) {
        return say(failure.what());
    }
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
                        "one of them.");
    return result;
}

} // namespace csi_lab
