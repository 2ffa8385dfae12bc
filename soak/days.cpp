#include "soak/days.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>

#include "soak/loaded_daemon.h"
#include "soak/random_schedule.h"

namespace csi_soak {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using simulated = std::chrono::duration<double>; // seconds on the daemon's clock

constexpr int speed = 1000;
constexpr simulated one_day(86'400);
constexpr const char* start_time = "@2038-01-18 22:00:00";
constexpr std::int64_t end_of_32_bits = 0x7fffffff; // 19 January 2038, 03:14:07
constexpr const char* long_poll_interval = R"({"cmd":"poll_interval","interval":10000})";
// The back-off of 20 poll intervals, an attach of 20 s, and a scan whose core services are silent.
constexpr simulated longest_wait(200 + 20 + 24 + 10);
constexpr milliseconds machine_delay(1500); // real time in which this machine may stall

simulated to_simulated(steady_clock::duration real) {
    return std::chrono::duration<double>(real) * speed;
}

std::string in_days(simulated time) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.2f days", time / one_day);
    return text.data();
}

std::string in_simulated_seconds(simulated time) {
    return std::to_string(std::lround(time.count())) + " s";
}

std::vector<std::string> preloaded(const std::string& library) {
    return {"LD_PRELOAD=" + library, "TZ=UTC"};
}

/// How long the daemon sends no request to the server. For one thread.
class request_gaps {
public:
    explicit request_gaps(const peers::rest_server& server)
        : server_(server) {}

    /// Call it often. Without `counting`, the time does not count.
    void observe(bool counting) {
        const steady_clock::time_point now = steady_clock::now();
        const std::size_t requests = server_.gets() + server_.posts();
        if (!counting || requests != requests_) {
            requests_ = requests;
            since_ = now;
        }
        longest_ = std::max(longest_, now - since_);
    }
    [[nodiscard]] steady_clock::duration longest() const { return longest_; }

private:
    const peers::rest_server& server_;
    std::size_t requests_ = 0;
    steady_clock::time_point since_ = steady_clock::now();
    steady_clock::duration longest_{0};
};

load fast_load(const run_options& options, const days_options& days) {
    load result;
    result.peers = usual_installation(options.seed);
    result.folder = options.folder + "/days";
    result.label = "days: ";
    result.attach_answer = long_poll_interval;
    result.environment = preloaded(days.clock_library);
    result.environment.push_back(std::string("FAKETIME=") + start_time + " x" +
                                 std::to_string(speed));
    result.queue_depth = 1;
    result.left_out = {"poll_interval"}; // stays at 10 s
    return result;
}

/// Many days at a thousand times the real speed. The daemon's timeouts run that much faster, too:
/// a core service that needs 2 ms has not answered. So every timeout is accepted, but must be in
/// the log.
class fast_run {
public:
    fast_run(const run_options& options, const days_options& days, reporter& report)
        : report_(report)
        , length_(days.days * one_day)
        , daemon_(options, fast_load(options, days), report)
        , gaps_(daemon_.installation().server())
        , schedule_(options.seed, 2) {}

    void run();

private:
    enum class state { calm, outage, recovering };

    void step();
    void begin_outage(steady_clock::time_point now);
    void end_outage(steady_clock::time_point now);
    void check_return(steady_clock::time_point now);
    void judge(simulated elapsed);
    void judge_clock(simulated elapsed);
    void judge_losses();
    void judge_engines();
    void add_figures();
    [[nodiscard]] std::size_t requests();

    reporter& report_;
    const simulated length_;
    loaded_daemon daemon_;
    request_gaps gaps_;
    random_schedule schedule_;
    const steady_clock::time_point begin_ = steady_clock::now();
    int next_day_ = 1;
    state state_ = state::calm;
    steady_clock::time_point due_; // when the next outage begins, or the present one ends
    steady_clock::time_point outage_end_;
    std::size_t requests_at_end_ = 0;
    std::size_t lines_before_ = 0;
    std::size_t outages_ = 0;
    std::size_t outage_lines_ = 0; // "request to ... failed" from its beginning to the return
    simulated in_outages_{0};
    simulated longest_outage_{0};
    simulated longest_recovery_{0};
};

void fast_run::run() {
    daemon_.conversation().leave_losses_to_caller();
    for (const char* const peer : {"core 127.0.0.1", "core 127.0.0.2", "fusion"}) {
        daemon_.conversation().begin_peer_fault(peer); // may be too slow at any time
    }
    if (!daemon_.wait_for_attach()) {
        return;
    }
    report_.print("the daemon has attached: " + in_days(length_) + " begin");
    due_ = steady_clock::now() + schedule_.time_between(3000, 8000);
    const auto duration = std::chrono::duration_cast<steady_clock::duration>(length_ / speed);
    daemon_.run_for(duration, [this] { step(); });
    if (state_ == state::outage) {
        end_outage(steady_clock::now());
    }
    const auto recovered = [this] {
        step();
        return state_ == state::calm;
    };
    report_.expect(daemon_.run_until(recovered, seconds(10)), "the daemon comes back",
                   "not after the last outage");
    const simulated elapsed = to_simulated(steady_clock::now() - begin_);
    daemon_.stop();
    judge(elapsed);
    add_figures();
}

void fast_run::step() {
    const steady_clock::time_point now = steady_clock::now();
    gaps_.observe(state_ == state::calm);
    const simulated elapsed = to_simulated(now - begin_);
    if (elapsed >= one_day * next_day_) {
        report_.print("day " + std::to_string(next_day_) + " is over");
        ++next_day_;
    }
    if (state_ == state::recovering) {
        check_return(now);
    } else if (now >= due_) {
        state_ == state::calm ? begin_outage(now) : end_outage(now);
    }
}

std::size_t fast_run::requests() {
    return daemon_.installation().server().gets() + daemon_.installation().server().attaches();
}

/// From about five minutes to two hours.
void fast_run::begin_outage(steady_clock::time_point now) {
    state_ = state::outage;
    ++outages_;
    daemon_.log().read();
    lines_before_ = daemon_.log().counts().failed_requests;
    daemon_.conversation().begin_excusing();
    const bool silent = schedule_.next() == 0;
    if (silent) {
        daemon_.installation().server().set_silent(true);
    } else {
        daemon_.installation().server().stop();
    }
    const milliseconds duration = schedule_.time_between(300, 7200);
    due_ = now + duration;
    in_outages_ += to_simulated(duration);
    longest_outage_ = std::max(longest_outage_, to_simulated(duration));
}

void fast_run::end_outage(steady_clock::time_point now) {
    state_ = state::recovering;
    daemon_.installation().server().set_silent(false);
    daemon_.installation().server().start();
    outage_end_ = now;
    requests_at_end_ = requests();
}

void fast_run::check_return(steady_clock::time_point now) {
    if (requests() == requests_at_end_) {
        return;
    }
    state_ = state::calm;
    longest_recovery_ = std::max(longest_recovery_, to_simulated(now - outage_end_));
    daemon_.conversation().end_excusing();
    daemon_.log().read();
    outage_lines_ += daemon_.log().counts().failed_requests - lines_before_;
    due_ = now + schedule_.time_between(10'000, 40'000);
}

void fast_run::judge(simulated elapsed) {
    judge_clock(elapsed);
    judge_losses();
    judge_engines();
    const simulated limit = longest_wait + to_simulated(machine_delay);
    const char* const return_check = "the daemon comes back";
    const std::string recovery = in_simulated_seconds(longest_recovery_) + " after an outage";
    report_.expect(longest_recovery_ <= limit, return_check, recovery);
    report_.add_check(return_check, recovery + ", limit " + in_simulated_seconds(limit));
    const char* const pause_check = "the daemon never pauses";
    const simulated gap = to_simulated(gaps_.longest());
    const std::string seen = in_simulated_seconds(gap) + " at most without a request";
    report_.expect(gap <= limit, pause_check, seen);
    report_.add_check(pause_check, seen + ", limit " + in_simulated_seconds(limit));
    daemon_.resources().judge();
}

/// The daemon has lived through the time that it should have, past the end of 32 bits.
void fast_run::judge_clock(simulated elapsed) {
    const char* const check = "the daemon's clock runs as it should";
    const log_reader::counters& log = daemon_.log().counts();
    const simulated logged(static_cast<double>(log.last_time - log.first_time));
    const std::string seen =
        "the log spans " + in_days(logged) + " of " + in_days(elapsed) +
        ", lines older than the one before: " + std::to_string(log.backward_steps);
    const simulated tolerance = to_simulated(seconds(3));
    report_.expect(std::abs((elapsed - logged).count()) <= tolerance.count() &&
                       log.backward_steps == 0,
                   check, seen);
    report_.add_check(check, seen);
    const char* const crossing = "19 January 2038 passes unnoticed";
    report_.expect(log.first_time < end_of_32_bits && log.last_time > end_of_32_bits, crossing,
                   "the run is too short for it");
    report_.add_check(crossing, std::to_string(log.last_time - end_of_32_bits) +
                                    " s of the log come after it");
}

/// Outside the outages, a timeout loses the command in hand at most.
void fast_run::judge_losses() {
    const char* const check = "no command is lost without a logged timeout";
    const conversation_checker::counters counts = daemon_.conversation().counts();
    const std::size_t timeouts = daemon_.log().counts().failed_requests - outage_lines_;
    const std::string seen = std::to_string(counts.lost_unexcused) + " lost outside outages, " +
                             std::to_string(timeouts) + " requests failed there";
    report_.expect(counts.lost_unexcused <= timeouts, check, seen);
    report_.add_check(check, seen);
    const char* const outage_check = "an outage is logged once";
    const std::string lines =
        std::to_string(outage_lines_) + " lines, " + std::to_string(outages_) + " outages";
    report_.expect(outage_lines_ <= outages_, outage_check, lines);
    report_.add_check(outage_check, lines);
    const char* const replies = "every reply is correct";
    report_.expect(counts.replies > 0, replies, "there is none");
    report_.add_check(replies, std::to_string(counts.replies) + " replies");
}

/// Most of them must not run into a timeout, or the run tests nothing.
void fast_run::judge_engines() {
    const char* const check = "engines answer";
    std::size_t commands = 0;
    for (const auto& [kind, count] : daemon_.conversation().replies_by_kind()) {
        const bool for_peer = kind.rfind("local engine", 0) == 0 || kind.rfind("fusion", 0) == 0;
        commands += for_peer ? count : 0;
    }
    const std::size_t errors = daemon_.conversation().counts().engine_errors;
    const std::string seen = std::to_string(errors) + " of " + std::to_string(commands) +
                             " engine commands had no answer in time";
    report_.expect(errors * 2 < commands, check, seen);
    report_.add_check(check, seen);
}

void fast_run::add_figures() {
    const conversation_checker::counters counts = daemon_.conversation().counts();
    const log_reader::counters& log = daemon_.log().counts();
    const peers::rest_server& server = daemon_.installation().server();
    report_.add_figure("commands handed out, replies",
                       std::to_string(counts.commands) + ", " + std::to_string(counts.replies));
    report_.add_figure("POSTs, GETs",
                       std::to_string(server.posts()) + ", " + std::to_string(server.gets()));
    report_.add_figure("attaches", std::to_string(counts.attaches));
    report_.add_figure("scan reports, status messages", std::to_string(counts.scan_reports) + ", " +
                                                            std::to_string(counts.status_messages));
    report_.add_figure("outages, together, longest", std::to_string(outages_) + ", " +
                                                         in_days(in_outages_) + ", " +
                                                         in_simulated_seconds(longest_outage_));
    report_.add_figure("log written, rotations, largest file",
                       std::to_string(log.bytes / 1024) + " KiB, " + std::to_string(log.rotations) +
                           ", " + std::to_string(log.largest_file) + " bytes");
    report_.add_check("the log stays small",
                      "largest file " + std::to_string(log.largest_file) + " bytes, limit " +
                          std::to_string(log_reader::max_file_bytes) + "; never a fifth file");
}

/// The offset of the daemon's wall clock in a file that the library reads on every call.
class wall_clock {
public:
    explicit wall_clock(std::string path)
        : path_(std::move(path)) {
        set("+0");
    }
    void set(const std::string& offset) const {
        const std::string next = path_ + ".next";
        std::ofstream(next) << offset << '\n';
        std::rename(next.c_str(), path_.c_str()); // the library never sees half a file
    }
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    const std::string path_;
};

load jumping_load(const run_options& options, const days_options& days, const wall_clock& clock) {
    load result;
    result.peers = usual_installation(options.seed);
    result.folder = options.folder + "/jumps";
    result.label = "clock that jumps: ";
    result.environment = preloaded(days.clock_library);
    result.left_out = {"disconnect"}; // a pause of its own
    // As in the real system: whoever sets the wall clock does not touch the monotonic clock.
    result.environment.emplace_back("FAKETIME_DONT_FAKE_MONOTONIC=1");
    result.environment.emplace_back("FAKETIME_NO_CACHE=1");
    result.environment.push_back("FAKETIME_TIMESTAMP_FILE=" + clock.path());
    return result;
}

/// The wall clock is set back by a day, and forward by 60 years, while commands come in.
void run_with_jumps(const run_options& options, const days_options& days, reporter& report) {
    const wall_clock clock(options.folder + "/clock");
    loaded_daemon daemon(options, jumping_load(options, days, clock), report);
    if (!daemon.wait_for_attach()) {
        return;
    }
    request_gaps gaps(daemon.installation().server());
    for (const char* const offset : {"-1d", "+60y", "-1d", "+0"}) {
        daemon.run_for(seconds(3), [&] { gaps.observe(true); });
        clock.set(offset);
        report.print(std::string("wall clock set to ") + offset);
    }
    daemon.run_for(seconds(3), [&] { gaps.observe(true); });
    daemon.stop();
    const char* const check = "a wall clock that jumps is not noticed";
    constexpr seconds limit(2);
    const std::size_t replies = daemon.conversation().counts().replies;
    const std::size_t backward = daemon.log().counts().backward_steps;
    const std::string seen = std::to_string(replies) + " replies, none lost; " +
                             in_seconds(gaps.longest()) + " at most without a request, limit " +
                             in_seconds(limit) + "; the log's time went back " +
                             std::to_string(backward) + " times";
    report.expect(gaps.longest() <= limit && backward == 2 && replies > 100, check, seen);
    report.expect(daemon.conversation().counts().lost == 0, check, "a command is lost");
    report.expect(daemon.log().counts().failed_requests == 0, check, "a request failed");
    report.add_check(check, seen);
}

} // namespace

void run_days(const run_options& options, const days_options& days, reporter& report) {
    run_with_jumps(options, days, report);
    fast_run(options, days, report).run();
}

} // namespace csi_soak
