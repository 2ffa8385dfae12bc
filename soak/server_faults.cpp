#include "soak/server_faults.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace csi_soak {
namespace {

struct fault {
    const char* name;
    bool breaks_exchanges; // so commands and sessions may be lost
    unsigned min_ms;
    unsigned max_ms;
    void (*apply)(peers::rest_server&, random_schedule&);
    std::optional<hostile_answer> hostile = {}; // of a server in place of the stopped one
    std::size_t max_lines = 1;
};

constexpr auto fall_silent = [](peers::rest_server& server, random_schedule&) {
    server.set_silent(true);
};

constexpr auto stop = [](peers::rest_server& server, random_schedule&) { server.stop(); };

/// None of these answers is a success but the short one: the daemon may lose its session when the
/// hostile server comes, attach there, and lose that session as well.
constexpr fault hostile(const char* name, hostile_answer answer, std::size_t max_lines = 1) {
    return {name, true, 3000, 8000, stop, answer, max_lines};
}

constexpr std::array<fault, 13> faults = {{
    {"server stopped", true, 1000, 7000, stop},
    {"server silent", true, 2000, 9000, fall_silent},
    {"server slow", false, 2000, 8000,
     [](auto& server, auto& schedule) { server.set_delay(schedule.time_between(200, 3000)); }},
    {"server cutting bodies short", true, 1000, 7000,
     [](auto& server, auto&) { server.set_cut(true); }},
    {"server answering with an error status", false, 2000, 6000,
     [](auto& server, auto&) { server.set_status(503); }},
    {"server silent beyond the timeout of a POST", true, 21'000, 26'000, fall_silent},
    hostile("hostile server: body too short", hostile_answer::too_long_content_length),
    hostile("hostile server: body too long", hostile_answer::too_short_content_length, 2),
    hostile("hostile server: invalid length", hostile_answer::invalid_content_length),
    hostile("hostile server: endless headers", hostile_answer::endless_headers),
    hostile("hostile server: slow bytes", hostile_answer::slow_bytes),
    hostile("hostile server: redirects in a circle", hostile_answer::redirect_circle),
    hostile("hostile server: redirects to FTP", hostile_answer::redirect_to_ftp),
}};
// The long silence and the hostile answers come half as often as the others.
constexpr std::array<std::size_t, 18> scheduled_faults = {0, 0, 1, 1, 2, 2, 3,  3,  4,
                                                          4, 5, 6, 7, 8, 9, 10, 11, 12};

} // namespace

server_faults::server_faults(peers::installation& installation, conversation_checker& conversation,
                             log_reader& log, reporter& report, std::uint32_t seed)
    : installation_(installation)
    , conversation_(conversation)
    , log_(log)
    , report_(report)
    , schedule_(seed, scheduled_faults.size())
    , due_(steady_clock::now() + schedule_.time_between(1000, 3000)) {}

void server_faults::step(steady_clock::time_point now) {
    if (state_ == state::recovering) {
        check_return(now);
    } else if (now >= due_ && state_ == state::failing) {
        end();
    } else if (now >= due_) {
        const std::size_t next = scheduled_faults[schedule_.next()];
        begin(next, schedule_.time_between(faults[next].min_ms, faults[next].max_ms));
    }
}

void server_faults::begin(std::size_t index, std::chrono::milliseconds duration) {
    fault_ = index;
    state_ = state::failing;
    due_ = steady_clock::now() + duration;
    overdue_ = false;
    log_.read();
    lines_before_ = log_.counts().failed_requests;
    counts_before_ = conversation_.counts();
    ++counts_[faults[index].name];
    report_.print(std::string(faults[index].name) + " for " + in_seconds(duration));
    if (faults[index].breaks_exchanges) {
        conversation_.begin_excusing();
    }
    faults[index].apply(installation_.server(), schedule_);
    if (faults[index].hostile) {
        hostile_.emplace(installation_.server().port(), *faults[index].hostile);
    }
}

void server_faults::end() {
    if (state_ != state::failing) {
        return;
    }
    peers::rest_server& server = installation_.server();
    server.set_silent(false);
    server.set_delay(std::chrono::milliseconds(0));
    server.set_cut(false);
    server.set_status(std::nullopt);
    end_hostile_server();
    server.start();
    end_ = steady_clock::now();
    requests_at_end_ = requests();
    state_ = state::recovering;
}

std::string server_faults::in_progress() const {
    return state_ == state::failing ? faults[fault_].name : "";
}

void server_faults::end_hostile_server() {
    if (!hostile_) {
        return;
    }
    hostile_answers_ += hostile_->answers();
    report_.expect(hostile_->waiting_clients() == 0, "redirects lead to HTTP only",
                   std::string(faults[fault_].name) + ": a client waits for a greeting");
    hostile_.reset();
}

/// Polls and attaches: the requests of a daemon that is ready for commands.
std::size_t server_faults::requests() const {
    return installation_.server().gets() + installation_.server().attaches();
}

void server_faults::check_return(steady_clock::time_point now) {
    const steady_clock::duration recovery = now - end_;
    if (requests() > requests_at_end_) {
        state_ = state::calm;
        due_ = now + schedule_.time_between(4000, 9000);
        finish(recovery);
    } else if (recovery > max_recovery && !std::exchange(overdue_, true)) {
        report_.fail("the daemon comes back", "not within " + in_seconds(recovery));
    }
}

void server_faults::finish(steady_clock::duration recovery) {
    conversation_.end_excusing();
    longest_recovery_ = std::max(longest_recovery_, recovery);
    log_.read();
    const conversation_checker::counters counts = conversation_.counts();
    const std::size_t attaches = counts.attaches - counts_before_.attaches;
    const std::size_t lines = log_.counts().failed_requests - lines_before_;
    report_.print(std::string(faults[fault_].name) + " is over: the daemon " +
                  (attaches > 0 ? "attached again" : "went on polling") + " after " +
                  in_seconds(recovery) + "; lines logged: " + std::to_string(lines));
    judge(attaches, lines,
          !counts_before_.attached || counts.disconnects != counts_before_.disconnects);
}

/// `disconnected`: the server told the daemon to disconnect, so it had to attach anyway.
void server_faults::judge(std::size_t attaches, std::size_t lines, bool disconnected) {
    const char* const line_check = "an outage is logged once";
    const std::string seen = std::string(faults[fault_].name) + ": " + std::to_string(lines) +
                             " lines, " + std::to_string(attaches) + " attaches";
    const bool session_lost = attaches > 0 && !disconnected;
    sessions_lost_ += session_lost ? 1 : 0;
    log_lines_ += lines;
    if (!faults[fault_].breaks_exchanges) {
        report_.expect(lines == 0, line_check, seen);
        report_.expect(!session_lost, "only an outage ends the session", seen);
    } else if (session_lost) {
        report_.expect(lines >= 1 && lines <= faults[fault_].max_lines, line_check, seen);
    } else {
        report_.expect(lines <= faults[fault_].max_lines, line_check, seen);
    }
}

} // namespace csi_soak
