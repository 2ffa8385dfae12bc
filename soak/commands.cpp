#include "soak/commands.h"

#include <numeric>
#include <utility>

namespace csi_soak {
namespace {

using texts = std::vector<std::string>;

const std::string yes = R"("success":true)";
const std::string no = R"("success":false)";
const std::string bot_mark = "#";       // stands for a known Bot
const std::string long_word_mark = "*"; // stands for a long word

std::string refused(const std::string& reason) {
    return no + R"(,"reason":")" + reason + "\"";
}

struct row {
    unsigned weight;
    const char* kind;
    texts words;       // one of them is the command word
    texts members;     // one of them follows the word
    std::string reply; // members added to the command, or a whole object; empty: no reply
    variable_part variable = variable_part::none;
};

const std::vector<row>& table() {
    static const std::vector<row> rows = {
        // These make the log grow fast enough to be rotated every few seconds.
        {300, "long unknown word", {long_word_mark}, {""}, refused("Not supported")},
        {30, "unknown word", {"make_coffee", "Start", "version "}, {""}, refused("Not supported")},
        {30, "empty word", {""}, {""}, R"("reason":"missing command")"},
        {70, "version", {"version"}, {""}, yes + R"(,"version":"@")", variable_part::version},
        {50, "rate", {"rate"}, {R"("rate":1)", R"("rate":25)", R"("rate":100)"}, yes},
        {20, "rate, invalid", {"rate"}, {R"("rate":0)", R"("rate":-1)"}, refused("Value error")},
        {40, "rate, query", {"rate"}, {""}, no + R"(,"rate":@)", variable_part::rate},
        {40, "poll_interval", {"poll_interval"}, {R"("interval":20)", R"("interval":110)"}, yes},
        {20,
         "poll_interval, invalid",
         {"poll_interval"},
         {R"("interval":0)", R"("interval":"9")"},
         no},
        {60,
         "associate, gssid, deregister, pair",
         {"associate", "gssid", "deregister", "pair"},
         {"", R"("bot":#)", R"("bot":999)"},
         yes},
        // "start" always replies false: kept for compatibility.
        {30, "start", {"start"}, {R"("bot":#)"}, no},
        {30, "stop", {"stop"}, {R"("bot":#)"}, yes},
        {20,
         "start or stop, no Bot",
         {"start", "stop"},
         {R"("bot":999)", R"("bots":[101])"},
         refused("No Bot selected")},
        {50, "bot_info", {"bot_info"}, {""}, yes + R"(,"bot_info":[@])", variable_part::bot_info},
        {15, "scan", {"scan"}, {""}, ""},
        {2, "disconnect", {"disconnect"}, {""}, ""},
        {15,
         "engine, unknown Bot",
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

/// Each row covers as many numbers as its weight.
const row& row_for(std::size_t number) {
    auto result = table().begin();
    for (; number >= result->weight; ++result) {
        number -= result->weight;
    }
    return *result;
}

std::string with(const std::string& object, const std::string& members) {
    return members.empty() ? object : object.substr(0, object.size() - 1) + "," + members + "}";
}

/// The state that the engines report after the command.
std::string engine_state_after(const std::string& word) {
    if (word == "state") {
        return {variable_part_mark};
    }
    return word == "start" ? "running" : "stopped";
}

} // namespace

command_generator::command_generator(std::uint32_t seed, std::vector<peers::routed_bot> bots)
    : random_(seed)
    , bots_(std::move(bots)) {}

test_command command_generator::next() {
    constexpr std::size_t engine_percent = 14;
    constexpr std::size_t malformed_percent = 6;
    const std::size_t percent = below(100);
    if (percent < engine_percent) {
        return for_engine();
    }
    if (percent < engine_percent + malformed_percent) {
        return malformed();
    }
    return from_table();
}

/// Not a distribution of the C++ library: these differ between libraries, and the same seed must
/// give the same commands everywhere.
std::size_t command_generator::below(std::size_t limit) {
    return random_() % limit;
}

/// The number comes back in the reply, so that no two commands have the same reply.
std::string command_generator::numbered(const std::string& word) {
    return R"({"cmd":")" + word + R"(","n":)" + std::to_string(++number_) + "}";
}

test_command command_generator::malformed() {
    static const texts choices = {
        "rubbish", "[1,2]", R"({"cmd":"version")",  "17", R"({"cmd":"version"}x)",
        "null",    "{'a'}", std::string(1500, '['), "\"", std::string(6000, 'x')};
    return {"malformed", one_of(choices), object_error, {}, {}, {}};
}

test_command command_generator::from_table() {
    const row& chosen = row_for(below(total_weight()));
    std::string word = one_of(chosen.words);
    if (word == long_word_mark) {
        word.assign(4000 + below(11'500), static_cast<char>('a' + below(26)));
    }
    std::string members = one_of(chosen.members);
    std::string ifname;
    if (const std::size_t mark = members.find(bot_mark); mark != std::string::npos) {
        const peers::routed_bot& bot = one_of(bots_);
        members.replace(mark, bot_mark.size(), bot.uuid);
        ifname = R"("ifname":")" + bot.ifname + "\"";
    }
    const std::string text = with(numbered(word), members);
    test_command result{chosen.kind, text, chosen.reply, chosen.variable, {}, {}};
    const bool adds_members = !chosen.reply.empty() && chosen.reply.front() != '{';
    if (adds_members) {
        result.expected = with(with(text, ifname), chosen.reply);
    }
    if (result.kind == "rate") {
        result.sets_rate = std::stoi(members.substr(members.find(':') + 1));
    }
    return result;
}

test_command command_generator::for_engine() {
    static const texts words = {"start", "stop", "state"};
    static const texts types = {"motion2", "breathing2", "guard", "cpd", "softSecurity"};
    const std::string& word = one_of(words);
    const std::string& type = one_of(types);
    const bool is_fusion = type == "cpd" || type == "softSecurity";
    const bool is_single = below(2) == 0;
    const peers::routed_bot& first = one_of(bots_);
    const std::string known =
        first.uuid + (is_single || below(2) == 0 ? "" : "," + one_of(bots_).uuid);
    const std::string all = (is_single || below(3) != 0 ? "" : "999,") + known;
    const auto members = [&](const std::string& bots) {
        return (is_single ? "\"bot\":" + bots : "\"bots\":[" + bots + "]") + R"(,"engineType":")" +
               type + "\"";
    };
    const std::string object = numbered(word);
    // The fusion daemon gets the known Bots only, a core service gets all of them. The answer, and
    // so the reply, repeats what each got.
    const std::string answer = members(is_fusion ? known : all) + "," + yes + R"(,"state":")" +
                               engine_state_after(word) + "\"";
    return {std::string(is_fusion ? "fusion" : "local") + " engine, " +
                (is_single ? "one Bot" : "several Bots"),
            with(object, members(all)),
            with(object, answer),
            word == "state" ? variable_part::engine_state : variable_part::none,
            is_fusion ? "fusion" : "core " + first.core_address,
            {}};
}

} // namespace csi_soak
