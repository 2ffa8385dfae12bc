// Runs all benchmarks repeatedly in random order, and compares each with its floor.
#include <iostream>
#include <map>
#include <streambuf>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/table.h"

namespace {

using csi_bench::budget;

/// Discards the daemon's log.
class null_buffer : public std::streambuf {
protected:
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(const char* /*text*/, std::streamsize size) override { return size; }
};

/// Of one benchmark, in ns, one value per repetition.
struct times {
    std::vector<double> wall;
    std::vector<double> cpu;
};

class collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                std::cerr << run.benchmark_name() << ": " << run.error_message << '\n';
                failed_ = true;
            } else if (run.run_type == Run::RT_Iteration) {
                const std::string& size = run.run_name.args;
                times& to = times_[run.run_name.function_name + (size.empty() ? "" : "/" + size)];
                const auto count = static_cast<double>(run.iterations);
                to.wall.push_back(run.real_accumulated_time / count * 1e9);
                to.cpu.push_back(run.cpu_accumulated_time / count * 1e9);
            }
        }
    }

    [[nodiscard]] bool failed() const { return failed_; }

    /// Prints nothing if either benchmark was filtered out.
    void compare(const std::string& title, const char* unit, std::vector<double> times::*kind,
                 const std::string& what, const std::string& floor, budget allowed) const {
        const auto ours = times_.find(what);
        const auto theirs = times_.find(floor);
        if (ours != times_.end() && theirs != times_.end()) {
            csi_bench::print_row(title, unit, ours->second.*kind, theirs->second.*kind, allowed);
        }
    }

private:
    std::map<std::string, times> times_;
    bool failed_ = false;
};

void print_floors(const collector& all) {
    const auto cpu = &times::cpu;
    csi_bench::print_header("Against the floor");
    all.compare("parse_msg, 17 bytes", "ns", cpu, "parse_msg/small", "bare_json/small", {1.5, 0});
    all.compare("parse_msg, 10 KB", "ns", cpu, "parse_msg/large", "bare_json/large", {1.5, 0});
    all.compare("both identifier passes, 10 KB", "ns", cpu, "identifier_passes", "bare_json/large",
                {});
    for (const auto kind : {&times::wall, &times::cpu}) {
        const std::string of = kind == cpu ? ", CPU" : ", wall clock";
        all.compare("core_request" + of, "ns", kind, "core_request", "bare_udp", {1.15, 0});
        all.compare("http_client get" + of, "ns", kind, "http_get", "bare_get", {1.05, 0});
        all.compare("http_client post" + of, "ns", kind, "http_post", "bare_post", {1.05, 0});
    }
}

/// All in CPU time. Ten times the Bots may take ten times as long, and a fifth more because of
/// cache misses.
void print_growth(const collector& all) {
    const budget linear{12, 0};
    const budget level{1.2, 0};
    csi_bench::print_header(
        "Growth: the floor is the same with a tenth of the Bots, for a command with 10 Bots");
    for (const int bots : {100, 1000, 10000}) {
        const std::string more = "/" + std::to_string(bots);
        const std::string fewer = "/" + std::to_string(bots / 10);
        const std::string of = ", " + std::to_string(bots) + " Bots";
        all.compare("start-up: add_routing" + of, "ns", &times::cpu, "add_routing" + more,
                    "add_routing" + fewer, linear);
        // These two measure CPU time themselves, and report it as their wall clock time.
        all.compare("a check of a scan" + of, "ns", &times::wall, "scan/check" + more,
                    "scan/check" + fewer, linear);
        all.compare("a whole scan" + of, "ns", &times::wall, "scan/whole" + more,
                    "scan/whole" + fewer, linear);
        all.compare("a command" + of, "ns", &times::cpu, "command" + more, "command/10", level);
    }
}

} // namespace

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    std::string defaults[] = {"--benchmark_repetitions=9", "--benchmark_min_time=0.1",
                              "--benchmark_enable_random_interleaving=true"};
    for (std::string& one : defaults) {
        arguments.insert(arguments.begin() + 1, one.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    null_buffer discarded;
    std::streambuf* const original = std::cout.rdbuf(&discarded);
    collector all;
    benchmark::RunSpecifiedBenchmarks(&all);
    std::cout.rdbuf(original);
    print_floors(all);
    print_growth(all);
    return all.failed() ? 1 : 0;
}
