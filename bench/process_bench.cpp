// What the daemon costs as a process, compared with a bare program that makes the same requests at
// the same times. While idle they run side by side, so that what disturbs the machine disturbs all.
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/installation.h"
#include "bench/measured_process.h"
#include "bench/table.h"

namespace {

constexpr int starts = 9;
constexpr int rounds = 3;
// Series of commands per round. They are short, so that the programs take turns often.
constexpr int series = 8;
constexpr std::size_t commands = 50;
// The daemon scans when it starts and every 30 s: not in the first period, once in the second.
constexpr int still_seconds = 20;
constexpr int scan_seconds = 30;

/// A program and its measurements: times in ns, memory in KiB.
class contender {
public:
    /// `posts` is how many POSTs the program sends when it starts.
    contender(peers::journal& journal, std::size_t posts)
        : posts_(posts)
        , process_(journal) {}

    [[nodiscard]] std::string port() const { return process_.port(); }
    void set_arguments(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }

    void start() { attach.push_back(process_.start(arguments_, posts_)); }
    void stop() { process_.stop(); }
    void begin_idle() { cpu_before_ = process_.cpu_time(); }
    [[nodiscard]] double cpu_per_second(int seconds) const {
        return (process_.cpu_time() - cpu_before_) / seconds;
    }
    void measure_memory() {
        resident.push_back(process_.memory("Rss"));
        dirty.push_back(process_.memory("Private_Dirty"));
    }
    void serve() { command.push_back(process_.serve(commands)); }

    std::vector<double> attach, still, scanning, command, resident, dirty;

private:
    const std::size_t posts_;
    csi_bench::measured_process process_;
    std::vector<std::string> arguments_;
    double cpu_before_ = 0;
};

class comparison {
public:
    comparison() {
        using csi_bench::installation;
        daemon_.set_arguments(place_.daemon_command(daemon_.port(), "true"));
        mute_.set_arguments(place_.daemon_command(mute_.port(), "no"));
        bare_.set_arguments(installation::bare_command(bare_.port(), "turns", place_.path("bare")));
        sleeper_.set_arguments(installation::bare_command(sleeper_.port(), "sleep", "/dev/null"));
    }

    void run() {
        for (int count = 0; count < starts; ++count) {
            for (contender* const one : all_) {
                one->start();
                one->stop();
            }
        }
        for (int count = 0; count < rounds; ++count) {
            std::fprintf(stderr, "process: round %d of %d\n", count + 1, rounds);
            run_round();
        }
    }

    void print() const {
        using of = contender;
        csi_bench::print_header("The process: the floor is a bare program with the same requests");
        print_row("CPU per command", "ns", &of::command, {1.1, 0}, bare_);
        csi_bench::print_row("  with the log to /dev/null", "ns", mute_.command, sleeper_.command,
                             {1.1, 0});
        print_row("CPU per idle second", "ns", &of::still, {1.05, 0}, bare_);
        print_row("  with a quiet scan every 30 s", "ns", &of::scanning, {}, bare_);
        print_row("  compared with a floor without turns", "ns", &of::still, {}, sleeper_);
        print_row("resident memory", "KiB", &of::resident, {0, 1024}, bare_);
        print_row("  of it private and dirty", "KiB", &of::dirty, {0, 1024}, bare_);
        print_row("time from start to attach", "ns", &of::attach, {}, bare_);
    }

private:
    void print_row(const char* what, const char* unit, std::vector<double> contender::*figures,
                   csi_bench::budget allowed, const contender& floor) const {
        csi_bench::print_row(what, unit, daemon_.*figures, floor.*figures, allowed);
    }

    void run_round() {
        for (contender* const one : all_) {
            one->start();
        }
        measure_idle();
        for (int count = 0; count < series; ++count) {
            for (contender* const one : all_) {
                one->serve();
            }
        }
        for (contender* const one : all_) {
            one->stop();
        }
    }

    void measure_idle() {
        const auto begin = std::chrono::steady_clock::now();
        for (contender* const one : all_) {
            one->begin_idle();
        }
        std::this_thread::sleep_until(begin + std::chrono::seconds(still_seconds));
        for (contender* const one : all_) {
            one->still.push_back(one->cpu_per_second(still_seconds));
            one->measure_memory();
        }
        std::this_thread::sleep_until(begin + std::chrono::seconds(scan_seconds));
        for (contender* const one : all_) {
            one->scanning.push_back(one->cpu_per_second(scan_seconds));
        }
    }

    csi_bench::installation place_;
    contender daemon_{place_.journal(), 3}; // attach, reply, and what the first scan has found
    contender mute_{place_.journal(), 3};   // the daemon with its log to /dev/null
    contender bare_{place_.journal(), 2};   // attach and reply
    contender sleeper_{place_.journal(),
                       2}; // the bare program without turns, with its log to /dev/null
    const std::vector<contender*> all_{&daemon_, &mute_, &bare_, &sleeper_};
};

} // namespace

int main() {
    try {
        comparison all;
        all.run();
        all.print();
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "csi_bench_process: %s\n", failure.what());
        return 1;
    }
}
