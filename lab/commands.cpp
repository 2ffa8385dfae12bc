#include "lab/commands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <exception>
#include <optional>
#include <sstream>
#include <string_view>

namespace csi_lab {
namespace {

using words = std::vector<std::string>;
/// Nothing when the words do not fit the command.
using answer = std::optional<typed_answer>;

typed_answer say(std::string line) {
    return {{std::move(line)}, false};
}

typed_answer done_for(const std::string& who, bool known) {
    return say(known ? "done" : "no peer " + who);
}

std::optional<double> number_of(const std::string& text, double most) {
    char* end = nullptr;
    const double result = std::strtod(text.c_str(), &end);
    const bool good = !text.empty() && *end == '\0' && result >= 0 && result <= most;
    return good ? std::optional<double>(result) : std::nullopt;
}

answer set_presence(const words& typed, peers::installation& lab) {
    if (typed.size() != 2) {
        return std::nullopt;
    }
    lab.set_present(typed[1], typed[0] == "present");
    return say("Bot " + typed[1] + " is " + typed[0]);
}

answer set_silent(const words& typed, peers::installation& lab) {
    const bool valid =
        typed.size() == 2 || (typed.size() == 3 && (typed[2] == "on" || typed[2] == "off"));
    if (!valid) {
        return std::nullopt;
    }
    return done_for(typed[1], lab.set_silent(typed[1], typed.back() != "off"));
}

answer set_delay(const words& typed, peers::installation& lab) {
    const auto delay = typed.size() == 2 ? number_of(typed[1], 600'000) : std::nullopt;
    if (!delay) {
        return std::nullopt;
    }
    const std::chrono::milliseconds rounded(static_cast<long>(*delay));
    lab.set_delay(rounded);
    return say("all answers wait " + std::to_string(rounded.count()) + " ms");
}

answer set_loss(const words& typed, peers::installation& lab) {
    const auto share = typed.size() == 2 ? number_of(typed[1], 1) : std::nullopt;
    if (!share) {
        return std::nullopt;
    }
    lab.set_loss(*share);
    return say("core services and fusion daemon lose " + typed[1] + " of the requests");
}

answer set_running(const words& typed, peers::installation& lab) {
    if (typed.size() != 2) {
        return std::nullopt;
    }
    return done_for(typed[1], typed[0] == "start" ? lab.start(typed[1]) : lab.stop(typed[1]));
}

answer state(const words& /*typed*/, peers::installation& lab) {
    return typed_answer{lab.state(), false};
}

answer help(const words& /*typed*/, peers::installation& /*lab*/) {
    return typed_answer{command_help(), false};
}

answer quit(const words& /*typed*/, peers::installation& /*lab*/) {
    return typed_answer{{}, true};
}

struct row {
    std::string_view word;
    std::string_view usage;
    std::string_view meaning;
    answer (*run)(const words&, peers::installation&);
};

constexpr std::array<row, 10> table = {{
    {"absent", "absent BOT", "the Bot is not heard any more", set_presence},
    {"present", "present BOT", "it is again", set_presence},
    {"silent", "silent PEER [on|off]", "the peer reads and does not answer", set_silent},
    {"delay", "delay MS", "all peers wait before they answer", set_delay},
    {"loss", "loss SHARE", "UDP requests are lost, 0 to 1", set_loss},
    {"stop", "stop PEER", "the peer's port is closed", set_running},
    {"start", "start PEER", "and opened again", set_running},
    {"state", "state", "what is attached, queued, sounded, heard, run", state},
    {"help", "help", "this list", help},
    {"quit", "quit", "ends the lab, as SIGINT and SIGTERM do", quit},
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

typed_answer queue(const std::string& text, peers::installation& lab) {
    lab.server().queue(text);
    return say("queued, " + std::to_string(lab.server().queued()) + " waiting");
}

typed_answer run_command(const words& typed, peers::installation& lab) {
    const auto* found = std::find_if(table.begin(), table.end(),
                                     [&](const row& one) { return one.word == typed[0]; });
    if (found == table.end()) {
        return say("\"" + typed[0] + "\" is neither JSON nor a command; try help");
    }
    const answer result = found->run(typed, lab);
    return result ? *result : say("usage: " + std::string(found->usage));
}

} // namespace

typed_answer carry_out(const std::string& line, peers::installation& lab) {
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
    std::vector<std::string> result = {
        "  {...} or [...]        is queued as the next command for the daemon, as typed",
        "  raw TEXT              so is any text"};
    for (const row& one : table) {
        std::string line = "  " + std::string(one.usage);
        line.resize(24, ' ');
        result.push_back(line + std::string(one.meaning));
    }
    result.emplace_back("  PEER is server, fusion, core (all of them) or core:127.0.0.1");
    return result;
}

} // namespace csi_lab
