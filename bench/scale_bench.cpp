// How the costs of start-up, scans and commands grow with the number of Bots.
#include <cstdint>
#include <ctime>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/peers.h"
#include "client/zorvin_client.h"

namespace {

using csi_receiver::zorvin_client;

constexpr int never_ms = 3600 * 1000; // scan timer: the benchmark calls scan_check itself
constexpr int checks_per_scan = 10;
constexpr std::int64_t bots_per_zorvin = 40;

/// Bots 0, 1, ..., all of one Zorvin or bots_per_zorvin of each.
std::string routing(std::int64_t bots, bool one_zorvin) {
    std::string text;
    for (std::int64_t bot = 0; bot < bots; ++bot) {
        const std::int64_t zorvin = bot / bots_per_zorvin;
        const std::string address = one_zorvin ? "127.0.0.1"
                                               : "10.0." + std::to_string(zorvin / 200) + "." +
                                                     std::to_string(zorvin % 200);
        text += (bot == 0 ? "" : ",") + std::to_string(bot) + ":" + address + ":wlan0:0A0000000001";
    }
    return text;
}

/// As many Bots as a core service can name, all unknown: a scan looks for every Bot in every check.
std::string strangers() {
    std::string list;
    for (int bot = 0; bot < 130; ++bot) {
        list += (bot == 0 ? "" : ",") + (R"({"uuid":")" + std::to_string(900000 + bot)) +
                R"(","count":17})";
    }
    return R"({"bots":[)" + list + "]}";
}

/// CPU time of this thread, which leaves out the peer and the waits for it.
double cpu_seconds() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

void add_routing(benchmark::State& state) {
    const std::string text = routing(state.range(0), false);
    while (state.KeepRunning()) {
        csi_receiver::routing_table table;
        table.add_routing(text);
        benchmark::DoNotOptimize(table.bots().size());
    }
}

/// For the last of the Bots, which a linear search would find last.
void command(benchmark::State& state) {
    const csi_bench::udp_peer peer; // answers when the client gives its interface back
    csi_receiver::configuration settings;
    zorvin_client client(-1, settings, never_ms);
    client.routing().add_routing(routing(state.range(0), true));
    const std::string text = R"({"cmd":"pair","bot":)" + std::to_string(state.range(0) - 1) + "}";
    while (state.KeepRunning()) {
        std::string reply;
        client.parse_msg(text, reply);
        benchmark::DoNotOptimize(reply.data());
    }
}

/// Scans that find no Bot. Measures their checks except the last one, or the whole scan.
void scan(benchmark::State& state, bool only_checks) {
    const csi_bench::udp_peer peer(strangers());
    csi_receiver::configuration settings;
    zorvin_client client(-1, settings, never_ms);
    client.routing().add_routing(routing(state.range(0), true));
    while (state.KeepRunning()) {
        const double begin = cpu_seconds();
        client.scan_start();
        const double started = cpu_seconds();
        int checks = 1;
        while (checks < checks_per_scan && client.scan_check()) {
            ++checks;
        }
        const double checked = cpu_seconds();
        if (checks < checks_per_scan || client.scan_check()) {
            state.SkipWithError("the scan took more or fewer checks");
        }
        state.SetIterationTime(only_checks ? (checked - started) / (checks_per_scan - 1)
                                           : cpu_seconds() - begin);
    }
}

void sizes(benchmark::internal::Benchmark* scaled) {
    scaled->RangeMultiplier(10)->Range(10, 10000);
}

} // namespace

BENCHMARK(add_routing)->Apply(sizes);
BENCHMARK(command)->Apply(sizes);
BENCHMARK_CAPTURE(scan, check, true)->Apply(sizes)->Iterations(2)->UseManualTime();
BENCHMARK_CAPTURE(scan, whole, false)->Apply(sizes)->Iterations(1)->UseManualTime();
