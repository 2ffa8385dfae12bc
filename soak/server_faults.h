/// Faults of the REST server, and how the daemon must come through them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "peers/installation.h"
#include "soak/conversation.h"
#include "soak/hostile_server.h"
#include "soak/log_reader.h"
#include "soak/random_schedule.h"
#include "soak/report.h"

namespace csi_soak {

/// One fault at a time. After each, the daemon must come back in time, and must not have logged
/// more about it than the kind of fault allows. For one thread.
class server_faults {
public:
    static constexpr std::chrono::seconds max_recovery{30};

    server_faults(peers::installation& installation, conversation_checker& conversation,
                  log_reader& log, reporter& report, std::uint32_t seed);

    /// Begins and ends faults when their time has come. Call it often.
    void step(steady_clock::time_point now);
    void begin(std::size_t index, std::chrono::milliseconds duration);
    void end();
    /// Whether there is no fault, and the daemon has come back from the last one.
    [[nodiscard]] bool recovered() const { return state_ == state::calm; }

    /// The name of the fault in progress; empty for none.
    [[nodiscard]] std::string in_progress() const;

    /// How often each fault has occurred, by name.
    [[nodiscard]] const std::map<std::string, std::size_t>& counts() const { return counts_; }
    [[nodiscard]] steady_clock::duration longest_recovery() const { return longest_recovery_; }
    [[nodiscard]] std::size_t sessions_lost() const { return sessions_lost_; }
    [[nodiscard]] std::size_t hostile_answers() const { return hostile_answers_; }
    /// Lines about failed requests that the daemon logged from the beginning of a fault until it
    /// came back.
    [[nodiscard]] std::size_t log_lines() const { return log_lines_; }

private:
    enum class state { calm, failing, recovering };

    [[nodiscard]] std::size_t requests() const;
    void end_hostile_server();
    void check_return(steady_clock::time_point now);
    void finish(steady_clock::duration recovery);
    void judge(std::size_t attaches, std::size_t lines, bool disconnected);

    peers::installation& installation_;
    conversation_checker& conversation_;
    log_reader& log_;
    reporter& report_;
    random_schedule schedule_;
    state state_ = state::calm;
    steady_clock::time_point due_; // when the next fault begins, or the present one ends
    std::size_t fault_ = 0;        // the present or the last one

    // When the fault began.
    conversation_checker::counters counts_before_;
    std::size_t lines_before_ = 0;
    // When the fault ended.
    steady_clock::time_point end_;
    std::size_t requests_at_end_ = 0;
    bool overdue_ = false;

    std::optional<hostile_server> hostile_;
    std::size_t hostile_answers_ = 0;

    std::map<std::string, std::size_t> counts_;
    steady_clock::duration longest_recovery_{0};
    std::size_t sessions_lost_ = 0;
    std::size_t log_lines_ = 0;
};

} // namespace csi_soak
