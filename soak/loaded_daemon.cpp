#include "soak/loaded_daemon.h"

#include <chrono>
#include <cstdint>
#include <utility>

#include <sys/wait.h>

namespace csi_soak {
namespace {

constexpr std::size_t kept_messages = 1000; // each is checked as soon as it is recorded
constexpr std::chrono::milliseconds step_period(50);
constexpr std::chrono::seconds max_start_time{15};
constexpr std::chrono::seconds max_exit_time{15};
// Not one that the system gives to clients: while the server is stopped, the daemon could get it,
// and would connect to itself.
constexpr std::uint16_t http_port = 14380;
constexpr const char* exit_check = "SIGTERM ends the daemon properly";

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

peers::installation_options usual_installation(std::uint32_t seed) {
    peers::installation_options result;
    result.zorvins = 2;
    result.bots = 4;
    result.api = seed % 2 == 0 ? "v2" : "v3";
    result.http_port = http_port;
    result.fusion = true;
    result.seed = seed;
    result.times = {std::chrono::milliseconds(300), std::chrono::milliseconds(500)};
    return result;
}

loaded_daemon::loaded_daemon(const run_options& options, load what, reporter& report)
    : report_(report)
    , load_(std::move(what))
    , bots_(peers::bots_of(load_.peers))
    , conversation_(report, bots_, load_.attach_answer)
    , contract_(report)
    , journal_(kept_messages)
    , installation_(checked_journal(), load_.peers)
    , daemon_(options.daemon, load_.folder, installation_.configuration(), load_.environment)
    , log_(daemon_.log_path(), report)
    , resources_(report)
    , commands_(options.seed, bots_) {
    installation_.server().set_attach_answer(load_.attach_answer);
}

peers::journal& loaded_daemon::checked_journal() {
    journal_.on_message([this](const peers::message& message) {
        conversation_.observe(message);
        contract_.observe(message);
    });
    return journal_;
}

bool loaded_daemon::wait_for_attach() {
    const auto attached = [this] { return installation_.server().attaches() > 0; };
    monitoring_ = run_until(attached, max_start_time);
    report_.expect(monitoring_, alive_check, "it does not attach");
    return monitoring_;
}

bool loaded_daemon::run_until(const std::function<bool()>& done, steady_clock::duration timeout) {
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

void loaded_daemon::run_for(steady_clock::duration duration, const std::function<void()>& step) {
    const steady_clock::time_point end = steady_clock::now() + duration;
    const auto is_over = [&] {
        step();
        return steady_clock::now() >= end;
    };
    static_cast<void>(run_until(is_over, duration + step_period * 20));
}

void loaded_daemon::fill_queue() {
    while (installation_.server().queued() < load_.queue_depth) {
        test_command command = commands_.next();
        if (load_.left_out.count(command.kind) != 0) {
            continue;
        }
        std::string text = command.text;
        conversation_.plan(std::move(command));
        installation_.server().queue(std::move(text));
    }
}

void loaded_daemon::stop() {
    report_.add_check(alive_check, "until SIGTERM");
    if (!alive_) {
        return;
    }
    const steady_clock::time_point begin = steady_clock::now();
    daemon_.terminate();
    const auto exit = daemon_.wait(max_exit_time);
    check_exit(exit, steady_clock::now() - begin);
    report_.add_check(contract_check,
                      std::to_string(contract_.checked()) + " messages of the daemon");
    log_.read();
}

void loaded_daemon::check_exit(const std::optional<daemon_process::exit_info>& exit,
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
    report_.add_figure(load_.label + "time from SIGTERM to the exit", in_seconds(time));
    if (exit) {
        report_.add_figure(load_.label + "CPU time of the daemon",
                           std::to_string(static_cast<long>(exit->cpu_seconds * 1000)) + " ms");
        report_.add_figure(load_.label + "peak of resident memory",
                           std::to_string(exit->peak_kib) + " KiB");
    }
}

} // namespace csi_soak
