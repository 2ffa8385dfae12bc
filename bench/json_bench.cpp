// What a message costs compared with only parsing it, writing the reply's JSON text, and logging
// it.
#include <iostream>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/bare_json.h"
#include "bench/bare_log.h"
#include "client/identifiers.h"
#include "client/zorvin_client.h"
#include "platform/json.h"

namespace {

constexpr int never_ms = 3600 * 1000;
const std::string small_message = R"({"cmd":"version"})";

/// An unknown command of about 10 KB, full of identifiers.
const std::string& large_message() {
    static const std::string text = [] {
        constexpr int bots = 100;
        std::string list;
        std::string details;
        for (int bot = 101; bot <= 100 + bots; ++bot) {
            const std::string id = std::to_string(bot);
            list += (list.empty() ? "" : ",") + id;
            details += (details.empty() ? "" : ",") + (R"({"bot":)" + id) +
                       R"(,"hwaddr":"02:00:00:00:01:0a","where":"upper floor, west",)" +
                       R"("signal":-61.5,"zorvin":9001,"active":true})";
        }
        return R"({"cmd":"inventory","bots":[)" + list + R"(],"details":[)" + details + "]}";
    }();
    return text;
}

/// As long as what parse_msg adds, to a byte.
const csi_bench::reply_members version_reply{{"success", nullptr},
                                             {"version", "v1.0-0-g111a051e591b"}};
const csi_bench::reply_members unknown_reply{{"success", nullptr}, {"reason", "Not supported"}};

void bare_json(benchmark::State& state, const std::string& text,
               const csi_bench::reply_members& members) {
    while (state.KeepRunning()) {
        const std::string line =
            csi_bench::format_log_line("zorvin_client::parse_msg receives: " + text);
        std::cout.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
        const std::string reply = csi_bench::parse_and_write(text, members);
        benchmark::DoNotOptimize(reply.data());
    }
}

void parse_msg(benchmark::State& state, const std::string& text) {
    csi_receiver::configuration settings{{"version", "v1.0-0-g111a051e591b"}};
    csi_receiver::zorvin_client client(-1, settings, never_ms);
    while (state.KeepRunning()) {
        std::string reply;
        client.parse_msg(text, reply);
        benchmark::DoNotOptimize(reply.data());
    }
}

/// Both passes, so that each iteration starts with the same message.
void identifier_passes(benchmark::State& state) {
    json::document message = json::parse(large_message());
    while (state.KeepRunning()) {
        csi_receiver::identifiers_to_text(message, message.GetAllocator());
        csi_receiver::identifiers_to_numbers(message);
    }
    if (json::write(message) != large_message()) {
        state.SkipWithError("the passes changed the message");
    }
}

} // namespace

BENCHMARK_CAPTURE(bare_json, small, small_message, version_reply);
BENCHMARK_CAPTURE(bare_json, large, large_message(), unknown_reply);
BENCHMARK_CAPTURE(parse_msg, small, small_message);
BENCHMARK_CAPTURE(parse_msg, large, large_message());
BENCHMARK(identifier_passes);
