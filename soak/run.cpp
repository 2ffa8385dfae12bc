#include "soak/run.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <ratio>
#include <string>
#include <utility>
#include <vector>

#include <sys/wait.h>

#include "peers/installation.h"
#include "peers/journal.h"
#include "soak/bot_absences.h"
#include "soak/commands.h"
#include "soak/conversation.h"
#include "soak/daemon_process.h"
#include "soak/log_reader.h"
#include "soak/peer_faults.h"
#include "soak/resource_monitor.h"
#include "soak/results.h"
#include "soak/server_faults.h"

namespace csi_soak {
namespace {

constexpr std::size_t queue_depth = 20;
constexpr std::size_t kept_messages = 1000; // each is checked as soon as it is recorded
constexpr std::chrono::milliseconds step_period(50);
constexpr std::chrono::seconds max_start_time{15};
constexpr std::chrono::seconds max_exit_time{15};
constexpr double min_replies_per_second = 5;
constexpr const char* attach_answer = R"({"cmd":"associate"})";
constexpr const char* alive_check = "the daemon stays alive";
constexpr const char* return_check = "the daemon comes back";
constexpr const char* exit_check = "SIGTERM ends the daemon properly";

peers::installation_options installation_options(std::uint32_t seed) {
    peers::installation_options result;
    result.zorvins = 2;
    result.bots = 4;
    result.api = seed % 2 == 0 ? "v2" : "v3";
    result.http_port = 0;
    result.fusion = true;
    result.seed = seed;
    result.times = {std::chrono::milliseconds(300), std::chrono::milliseconds(500)};
    return result;
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

class soak_run {
public:
    soak_run(const run_options& options, reporter& report)
        : report_(report)
        , bots_(peers::bots_of(installation_options(options.seed)))
        , conversation_(report, bots_, attach_answer)
        , journal_(kept_messages)
        , installation_(checked_journal(), installation_options(options.seed))
        , daemon_(options.daemon, options.folder, installation_.configuration())
        , log_(daemon_.log_path(), report)
        , resources_(report)
        , commands_(options.seed, bots_)
        , server_faults_(installation_, conversation_, log_, report, options.seed + 1)
        , peer_faults_(installation_, conversation_, report, options.seed + 2)
        , bot_absences_(installation_, bots_, options.seed + 3) {}

    void run(std::chrono::duration<double> duration);

private:
    peers::journal& checked_journal();
    bool run_until(const std::function<bool()>& done, steady_clock::duration timeout);
    void run_for(steady_clock::duration duration, const std::function<void()>& step);
    void run_with_faults(steady_clock::duration duration);
    void run_without_faults(steady_clock::duration duration);
    void fill_queue();
    void stop_daemon();
    void check_exit(const std::optional<daemon_process::exit_info>& exit,
                    steady_clock::duration time);

    reporter& report_;
    const std::vector<peers::routed_bot> bots_;
    conversation_checker conversation_; // before the journal, whose threads call it
    peers::journal journal_;
    peers::installation installation_;
    daemon_process daemon_;
    log_reader log_;
    resource_monitor resources_;
    command_generator commands_;
    server_faults server_faults_;
    peer_faults peer_faults_;
    bot_absences bot_absences_;
    bool monitoring_ = false; // not during start-up, when usage still grows
    bool alive_ = true;
};

peers::journal& soak_run::checked_journal() {
    journal_.on_message([this](const peers::message& message) { conversation_.observe(message); });
    return journal_;
}

void soak_run::run(std::chrono::duration<double> duration) {
    const auto attached = [this] { return installation_.server().attaches() > 0; };
    if (!run_until(attached, max_start_time)) {
        report_.fail(alive_check, "it does not attach");
        return;
    }
    monitoring_ = true;
    report_.print("the daemon has attached: load and faults begin");
    const auto whole = std::chrono::duration_cast<steady_clock::duration>(duration);
    run_with_faults(whole - whole / 6);
    run_without_faults(whole / 6);
    if (alive_) {
        stop_daemon();
    }
    report_.add_check(alive_check, "until SIGTERM");
    check_conversation(conversation_, report_);
    check_log(log_, server_faults_, report_);
    resources_.judge();
    add_conversation_figures(conversation_, installation_.server(), report_);
    add_fault_figures(server_faults_, peer_faults_, bot_absences_, report_);
}

/// Keeps the daemon busy and watches it until `done` returns true. False at the timeout, and when
/// the daemon has exited.
bool soak_run::run_until(const std::function<bool()>& done, steady_clock::duration timeout) {
    const steady_clock::time_point deadline = steady_clock::now() + timeout;
    while (!done()) {
        if (!alive_ || steady_clock::now() >= deadline) {
            return false;
        }
        fill_queue();
        log_.read();
        if (monitoring_) {
            resources_.sample_if_due(daemon_, installation_.server().posts());
        }
        if (const auto exit = daemon_.wait(step_period)) {
            alive_ = false;
            report_.fail(alive_check, "it ended with wait status " +
                                          std::to_string(exit->wait_status) + ": " +
                                          daemon_.errors());
        }
    }
    return true;
}

/// Returns early when the daemon has exited.
void soak_run::run_for(steady_clock::duration duration, const std::function<void()>& step) {
    const steady_clock::time_point end = steady_clock::now() + duration;
    const auto is_over = [&] {
        step();
        return steady_clock::now() >= end;
    };
    static_cast<void>(run_until(is_over, duration + step_period * 20));
}

void soak_run::fill_queue() {
    while (installation_.server().queued() < queue_depth) {
        test_command command = commands_.next();
        std::string text = command.text;
        conversation_.plan(std::move(command));
        installation_.server().queue(std::move(text));
    }
}

void soak_run::run_with_faults(steady_clock::duration duration) {
    run_for(duration, [this] {
        const steady_clock::time_point now = steady_clock::now();
        server_faults_.step(now);
        peer_faults_.step(now);
        bot_absences_.step(now);
    });
    report_.print("no more faults from here on");
    peer_faults_.end();
    server_faults_.end();
    const auto recovered = [this] {
        server_faults_.step(steady_clock::now());
        return server_faults_.recovered();
    };
    report_.expect(run_until(recovered, server_faults::max_recovery), return_check,
                   "not after the last fault");
}

/// The faults must have no after-effects: the daemon is fast again, and its memory does not grow.
void soak_run::run_without_faults(steady_clock::duration duration) {
    const std::size_t before = conversation_.counts().replies;
    run_for(duration, [] {});
    const auto replies = static_cast<double>(conversation_.counts().replies - before);
    const double rate = replies / std::chrono::duration<double>(duration).count();
    report_.add_figure("replies per second without faults",
                       std::to_string(static_cast<long>(rate)));
    report_.expect(rate >= min_replies_per_second, return_check, "but it is slow");
}

/// Under load, and during a scan if one starts in time.
void soak_run::stop_daemon() {
    const bool scanning = run_until([this] { return log_.scanning(); }, std::chrono::seconds(10));
    report_.print(std::string("SIGTERM ") + (scanning ? "during a scan" : "between scans"));
    const steady_clock::time_point begin = steady_clock::now();
    daemon_.terminate();
    const auto exit = daemon_.wait(max_exit_time);
    check_exit(exit, steady_clock::now() - begin);
    log_.read();
}

void soak_run::check_exit(const std::optional<daemon_process::exit_info>& exit,
                          steady_clock::duration time) {
    const bool succeeded =
        exit && WIFEXITED(exit->wait_status) && WEXITSTATUS(exit->wait_status) == 0;
    report_.expect(succeeded, exit_check, "no exit status 0 within " + in_seconds(max_exit_time));
    report_.expect(ends_with(daemon_.output(), "Closing monitor client\nExiting csi_receiver\n"),
                   exit_check, "its last lines are missing");
    report_.expect(installation_.core(0).interfaces().empty() &&
                       installation_.core(1).interfaces().empty(),
                   exit_check, "an interface was not removed");
    report_.expect(!conversation_.awaiting_reply(), "no command is lost",
                   "the last one before SIGTERM");
    report_.add_check(exit_check,
                      "after " + in_seconds(time) + ", limit " + in_seconds(max_exit_time));
    report_.add_figure("time from SIGTERM to the exit", in_seconds(time));
    if (exit) {
        report_.add_figure("CPU time of the daemon",
                           std::to_string(static_cast<long>(exit->cpu_seconds * 1000)) + " ms");
        report_.add_figure("peak of resident memory", std::to_string(exit->peak_kib) + " KiB");
    }
}

} // namespace

void run_soak(const run_options& options, reporter& report) {
    soak_run(options, report).run(std::chrono::duration<double, std::ratio<60>>(options.minutes));
}

} // namespace csi_soak
