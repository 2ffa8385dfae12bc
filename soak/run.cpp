#include "soak/run.h"

#include <chrono>
#include <cstddef>
#include <ratio>
#include <string>

#include "soak/bot_absences.h"
#include "soak/loaded_daemon.h"
#include "soak/peer_faults.h"
#include "soak/results.h"
#include "soak/sample_file.h"
#include "soak/server_faults.h"
#include "soak/stranger.h"

namespace csi_soak {
namespace {

constexpr double min_replies_per_second = 5;
constexpr const char* return_check = "the daemon comes back";

load usual_load(const run_options& options) {
    load result;
    result.peers = usual_installation(options.seed);
    result.folder = options.folder;
    return result;
}

class soak_run {
public:
    soak_run(const run_options& options, reporter& report)
        : report_(report)
        , daemon_(options, usual_load(options), report)
        , server_faults_(daemon_.installation(), daemon_.conversation(), daemon_.log(), report,
                         options.seed + 1)
        , peer_faults_(daemon_.installation(), daemon_.conversation(), report, options.seed + 2)
        , bot_absences_(daemon_.installation(), daemon_.bots(), options.seed + 3)
        , stranger_(report, options.seed + 4)
        , samples_(options.samples) {}

    void run(std::chrono::duration<double> duration);

private:
    void run_with_faults(steady_clock::duration duration);
    void run_without_faults(steady_clock::duration duration);
    void stop_daemon();
    void sample(steady_clock::time_point now);

    reporter& report_;
    loaded_daemon daemon_;
    server_faults server_faults_;
    peer_faults peer_faults_;
    bot_absences bot_absences_;
    stranger stranger_;
    sample_file samples_;
};

void soak_run::run(std::chrono::duration<double> duration) {
    if (!daemon_.wait_for_attach()) {
        return;
    }
    report_.print("the daemon has attached: load and faults begin");
    const auto whole = std::chrono::duration_cast<steady_clock::duration>(duration);
    run_with_faults(whole - whole / 6);
    run_without_faults(whole / 6);
    stop_daemon();
    check_conversation(daemon_.conversation(), report_);
    check_log(daemon_.log(), server_faults_, report_);
    daemon_.resources().judge();
    add_conversation_figures(daemon_.conversation(), daemon_.installation().server(), report_);
    add_fault_figures(server_faults_, peer_faults_, bot_absences_, stranger_, report_);
}

void soak_run::run_with_faults(steady_clock::duration duration) {
    daemon_.run_for(duration, [this] {
        const steady_clock::time_point now = steady_clock::now();
        server_faults_.step(now);
        peer_faults_.step(now);
        bot_absences_.step(now);
        stranger_.step(now);
        sample(now);
    });
    report_.print("no more faults from here on");
    stranger_.leave();
    peer_faults_.end();
    server_faults_.end();
    const auto recovered = [this] {
        server_faults_.step(steady_clock::now());
        return server_faults_.recovered();
    };
    report_.expect(daemon_.run_until(recovered, server_faults::max_recovery), return_check,
                   "not after the last fault");
}

/// The faults must have no after-effects: the daemon is fast again, and its memory does not grow.
void soak_run::run_without_faults(steady_clock::duration duration) {
    const std::size_t before = daemon_.conversation().counts().replies;
    daemon_.run_for(duration, [this] { sample(steady_clock::now()); });
    const auto replies = static_cast<double>(daemon_.conversation().counts().replies - before);
    const double rate = replies / std::chrono::duration<double>(duration).count();
    report_.add_figure("replies per second without faults",
                       std::to_string(static_cast<long>(rate)));
    report_.expect(rate >= min_replies_per_second, return_check, "but it is slow");
}

void soak_run::sample(steady_clock::time_point now) {
    if (samples_.is_due(now)) {
        samples_.add(now, daemon_.usage(), daemon_.conversation().counts().replies,
                     server_faults_.in_progress(), peer_faults_.in_progress());
    }
}

/// Under load, and during a scan if one starts in time.
void soak_run::stop_daemon() {
    const bool scanning =
        daemon_.run_until([this] { return daemon_.log().scanning(); }, std::chrono::seconds(10));
    report_.print(std::string("SIGTERM ") + (scanning ? "during a scan" : "between scans"));
    daemon_.stop();
}

} // namespace

void run_soak(const run_options& options, reporter& report) {
    soak_run(options, report).run(std::chrono::duration<double, std::ratio<60>>(options.minutes));
}

} // namespace csi_soak
