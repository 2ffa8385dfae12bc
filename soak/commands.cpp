#include "soak/commands.h"

#include <array>
#include <cstdio>
#include <numeric>
#include <utility>

namespace csi_soak {
namespace {

using texts = std::vector<std::string>;

const std::string yes = R"("success":true)";
const std::string no = R"("success":false)";
const std::string bot_mark = "#";  ///< Stands for a Bot that the daemon knows.
const std::string long_mark = "*"; ///< Stands for a long word.

std::string refused(const std::string& reason) {
    return no + R"(,"reason":")" + reason + "\"";
}

struct row {
    unsigned weight;
    const char* kind;
    texts words;       ///< One of them is the command,
    texts members;     ///< one of these follows,
    std::string reply; ///< and this the reply adds, or is when it is an object; empty: none.
    soak_gap gap = soak_gap::none;
};

const std::vector<row>& table() {
    static const std::vector<row> rows = {
        // They make the log grow, so that it is rotated every few seconds.
        {300, "unknown word, long", {long_mark}, {""}, refused("Not supported")},
        {30, "unknown word", {"make_coffee", "Start", "version "}, {""}, refused("Not supported")},
        {30, "no word", {""}, {""}, R"("reason":"missing command")"},
        {70, "version", {"version"}, {""}, yes + R"(,"version":"@")", soak_gap::version},
        {50, "rate", {"rate"}, {R"("rate":1)", R"("rate":25)", R"("rate":100)"}, yes},
        {20, "rate, wrong", {"rate"}, {R"("rate":0)", R"("rate":-1)"}, refused("Value error")},
        {40, "rate, asked for", {"rate"}, {""}, no + R"(,"rate":@)", soak_gap::rate},
        {40, "poll_interval", {"poll_interval"}, {R"("interval":20)", R"("interval":110)"}, yes},
        {20,
         "poll_interval, wrong",
         {"poll_interval"},
         {R"("interval":0)", R"("interval":"9")"},
         no},
        {60,
         "what is accepted",
         {"associate", "gssid", "deregister", "pair"},
         {"", R"("bot":#)", R"("bot":999)"},
         yes},
        // "start" always says false: servers wait for what the Bot measures.
        {30, "start", {"start"}, {R"("bot":#)"}, no},
        {30, "stop", {"stop"}, {R"("bot":#)"}, yes},
        {20,
         "start and stop, no Bot",
         {"start", "stop"},
         {R"("bot":999)", R"("bots":[101])"},
         refused("No Bot selected")},
        {50, "bot_info", {"bot_info"}, {""}, yes + R"(,"bot_info":[@])", soak_gap::bot_info},
        {15, "scan", {"scan"}, {""}, ""},
        {2, "disconnect", {"disconnect"}, {""}, ""},
        {15,
         "engine, no Bot",
         {"start", "stop", "state"},
         {R"("bot":999,"engineType":"guard")", R"("bots":[998],"engineType":"guard")"},
         engine_error},
    };
    return rows;
}

unsigned total_weight() {
    return std::accumulate(table().begin(), table().end(), 0U,
                           [](unsigned sum, const row& one) { return sum + one.weight; });
}

const row& row_at(std::size_t drawn) {
    auto result = table().begin();
    for (; drawn >= result->weight; ++result) {
        drawn -= result->weight;
    }
    return *result;
}

std::string with(const std::string& object, const std::string& members) {
    return members.empty() ? object : object.substr(0, object.size() - 1) + "," + members + "}";
}

} // namespace

std::vector<soak_bot> soak_bots(unsigned count) {
    constexpr unsigned first_bot = 101;
    std::vector<soak_bot> result;
    for (unsigned index = 0; index < count; ++index) {
        const unsigned zorvin = index % 2;
        std::array<char, 32> hwaddr = {};
        std::snprintf(hwaddr.data(), hwaddr.size(), "02:00:00:00:00:%02x", first_bot + index);
        result.push_back({std::to_string(first_bot + index), hwaddr.data(),
                          "wlan" + std::to_string(zorvin),
                          "core 127.0.0." + std::to_string(zorvin + 1)});
    }
    return result;
}

soak_commands::soak_commands(std::uint32_t seed, std::vector<soak_bot> bots)
    : dice_(seed)
    , bots_(std::move(bots)) {}

soak_command soak_commands::draw() {
    constexpr std::size_t engines = 14; // Of a hundred.
    constexpr std::size_t rubbish = 6;
    const std::size_t drawn = below(100);
    return drawn < engines             ? draw_engine()
           : drawn < engines + rubbish ? draw_rubbish()
                                       : draw_plain();
}

/// The library's distributions differ from one standard library to the next; a seed must not.
std::size_t soak_commands::below(std::size_t limit) {
    return dice_() % limit;
}

std::string soak_commands::begin(const std::string& word) {
    return R"({"cmd":")" + word + R"(","n":)" + std::to_string(++number_) + "}";
}

soak_command soak_commands::draw_rubbish() {
    static const texts choice = {
        "rubbish", "[1,2]", R"({"cmd":"version")",  "17", R"({"cmd":"version"}x)",
        "null",    "{'a'}", std::string(1500, '['), "\"", std::string(6000, 'x')};
    return {"rubbish", one_of(choice), object_error, {}, {}, {}};
}

soak_command soak_commands::draw_plain() {
    const row& chosen = row_at(below(total_weight()));
    std::string word = one_of(chosen.words);
    if (word == long_mark) {
        word.assign(4000 + below(11'500), static_cast<char>('a' + below(26)));
    }
    std::string members = one_of(chosen.members);
    const std::size_t mark = members.find(bot_mark);
    std::string ifname;
    if (mark != std::string::npos) {
        const soak_bot& bot = one_of(bots_);
        members.replace(mark, bot_mark.size(), bot.id);
        ifname = R"("ifname":")" + bot.ifname + "\"";
    }
    const std::string text = with(begin(word), members);
    const bool is_whole = chosen.reply.empty() || chosen.reply.front() == '{';
    soak_command result = {chosen.kind, text, chosen.reply, chosen.gap, {}, {}};
    if (!is_whole) {
        result.expected = with(with(text, ifname), chosen.reply);
    }
    if (result.kind == "rate") {
        result.sets_rate = std::stoi(members.substr(members.find(':') + 1));
    }
    return result;
}

soak_command soak_commands::draw_engine() {
    static const texts words = {"start", "stop", "state"};
    static const texts types = {"motion2", "breathing2", "guard", "cpd", "softSecurity"};
    const std::string& word = one_of(words);
    const std::string& type = one_of(types);
    const bool is_fusion = type == "cpd" || type == "softSecurity";
    const bool is_one = below(2) == 0;
    const soak_bot& first = one_of(bots_);
    const std::string known = first.id + (is_one || below(2) == 0 ? "" : "," + one_of(bots_).id);
    const std::string all = (is_one || below(3) != 0 ? "" : "999,") + known;
    const auto about = [&](const std::string& bots) {
        return (is_one ? "\"bot\":" + bots : "\"bots\":[" + bots + "]") + R"(,"engineType":")" +
               type + "\"";
    };
    // What the lab's engines answer: all Bots of a command are in the same state after it.
    const std::string state = word == "start" ? "running" : word == "stop" ? "stopped" : "@";
    const std::string begun = begin(word);
    // A local engine is told all Bots as they came, the fusion daemon those that are known.
    return {
        std::string(is_fusion ? "fusion" : "local") +
            (is_one ? " engine, one Bot" : " engine, several Bots"),
        with(begun, about(all)),
        with(begun, about(is_fusion ? known : all) + "," + yes + R"(,"state":")" + state + "\""),
        state == "@" ? soak_gap::engine_state : soak_gap::none,
        is_fusion ? "fusion" : first.core,
        {}};
}

} // namespace csi_soak
