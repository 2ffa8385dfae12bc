// What the daemon costs as a process, beside a bare program that makes the same requests in the
// same rhythm. Idle, they run side by side, so that what disturbs the machine disturbs all.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/subject.h"
#include "bench/table.h"
#include "peers/core_service.h"

namespace {

constexpr int starts = 9;
constexpr int rounds = 3;
constexpr int series = 8; // of commands, in a round; short, so that neighbours have like conditions
constexpr std::size_t commands = 50;
// The daemon scans at its start and then every 30 s: not in the first span, once in the second.
constexpr int still_seconds = 20;
constexpr int scan_seconds = 30;

class contestant {
public:
    contestant(peers::journal& record, std::size_t posts)
        : posts_(posts)
        , process_(record) {}

    [[nodiscard]] std::string port() const { return process_.port(); }
    void runs(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }

    /// Until all is done that the start brings along.
    void start() { attach.push_back(process_.start(arguments_, posts_)); }
    void stop() { process_.stop(); }
    void begin_idle() { cpu_before_ = process_.cpu_time(); }
    [[nodiscard]] double used_a_second(int seconds) const {
        return (process_.cpu_time() - cpu_before_) / seconds;
    }
    void note_memory() {
        resident.push_back(process_.memory("Rss"));
        dirty.push_back(process_.memory("Private_Dirty"));
    }
    void serve() { command.push_back(process_.serve(commands)); }

    std::vector<double> attach, still, scanning, command, resident, dirty;

private:
    const std::size_t posts_;
    csi_bench::subject process_;
    std::vector<std::string> arguments_;
    double cpu_before_ = 0;
};

/// The daemon, one whose log goes nowhere, the bare program, the bare program without the daemon's
/// turns, and the core service that the daemons need.
class contest {
public:
    contest() {
        daemon_.runs({CSI_RECEIVER_BINARY, configuration(daemon_.port(), "true")});
        mute_.runs({CSI_RECEIVER_BINARY, configuration(mute_.port(), "no")});
        bare_.runs({CSI_BENCH_BARE_BINARY, bare_.port(), "turns"});
        sleeper_.runs({CSI_BENCH_BARE_BINARY, sleeper_.port(), "sleep"});
    }
    ~contest() { std::filesystem::remove_all(directory_); }
    contest(const contest&) = delete;
    contest& operator=(const contest&) = delete;

    void run() {
        for (int count = 0; count < starts; ++count) {
            for (contestant* const one : all_) {
                one->start();
                one->stop();
            }
        }
        for (int count = 0; count < rounds; ++count) {
            std::fprintf(stderr, "process: round %d of %d\n", count + 1, rounds);
            play_round();
        }
    }

    void print() const {
        using of = contestant;
        csi_bench::print_head("The process: the floor is a bare program that asks the same");
        compare("CPU of a command", "ns", &of::command, {1.2, 0}, bare_);
        csi_bench::print_row("  with its log to /dev/null", "ns", mute_.command, bare_.command,
                             {1.2, 0});
        compare("CPU of an idle second", "ns", &of::still, {1.1, 0}, bare_);
        compare("  with a quiet scan every 30 s", "ns", &of::scanning, {}, bare_);
        compare("  against a floor without turns", "ns", &of::still, {}, sleeper_);
        compare("resident memory", "KiB", &of::resident, {0, 1024}, bare_);
        compare("  of it private and dirty", "KiB", &of::dirty, {0, 1024}, bare_);
        compare("start to attach", "ns", &of::attach, {}, bare_);
    }

private:
    void compare(const char* what, const char* unit, std::vector<double> contestant::*which,
                 csi_bench::budget allowed, const contestant& floor) const {
        csi_bench::print_row(what, unit, daemon_.*which, floor.*which, allowed);
    }

    void play_round() {
        for (contestant* const one : all_) {
            one->start();
        }
        const auto begin = std::chrono::steady_clock::now();
        for (contestant* const one : all_) {
            one->begin_idle();
        }
        std::this_thread::sleep_until(begin + std::chrono::seconds(still_seconds));
        for (contestant* const one : all_) {
            one->still.push_back(one->used_a_second(still_seconds));
            one->note_memory();
        }
        std::this_thread::sleep_until(begin + std::chrono::seconds(scan_seconds));
        for (contestant* const one : all_) {
            one->scanning.push_back(one->used_a_second(scan_seconds));
        }
        for (int count = 0; count < series; ++count) {
            for (contestant* const one : all_) {
                one->serve();
            }
        }
        for (contestant* const one : all_) {
            one->stop();
        }
    }

    /// Writes one with "log" set so, and returns its path.
    [[nodiscard]] std::string configuration(const std::string& port, const char* log) const {
        std::string path = directory_ + "/conf_" + log;
        std::ofstream(path) << "zorvin_uuid=9001\nserver=127.0.0.1\nhttp_port=" << port
                            << "\nlog=" << log << "\nlog_path=" << directory_
                            << "\nrouting=101:127.0.0.1:wlan0:0A0000000101\n";
        return path;
    }
    static std::string make_directory() {
        std::string pattern = std::filesystem::temp_directory_path() / "csi_bench_XXXXXX";
        return mkdtemp(pattern.data());
    }
    static peers::core_service_options quick_radio() {
        peers::core_service_options result;
        result.times.appear_after = std::chrono::milliseconds(100);
        return result; // a scan ends with its first look
    }

    const std::string directory_ = make_directory();
    peers::journal journal_;
    peers::core_service core_{journal_, "127.0.0.1", quick_radio()};

    contestant daemon_{journal_, 3}; // posts attach, reply, and what the first scan has found
    contestant mute_{journal_, 3};   // standard output is /dev/null
    contestant bare_{journal_, 2};   // attach and reply
    contestant sleeper_{journal_, 2};
    const std::vector<contestant*> all_{&daemon_, &mute_, &bare_, &sleeper_};
};

} // namespace

int main() {
    try {
        contest all;
        all.run();
        all.print();
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "csi_bench_process: %s\n", failure.what());
        return 1;
    }
}
