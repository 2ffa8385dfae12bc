/// The station scan: which Bots are there. Started by the main loop, continued by a timer.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "client/client_state.h"
#include "client/messages.h"
#include "client/rest_session.h"
#include "client/routing.h"
#include "platform/timer.h"

namespace csi_receiver {

/// Main thread only, but for check. Borrows all that it is given for its life.
class scanner {
public:
    /// How long a scan waits from one check to the next.
    static constexpr int default_period_ms = 1000;

    /// Throws when the system refuses the timer.
    scanner(client_state& state, routing_table& routing, rest_session& session,
            const zorvin_identity& identity, int period_ms);

    /// As finish.
    ~scanner();
    scanner(const scanner&) = delete;
    scanner& operator=(const scanner&) = delete;

    /// Makes the next scan, or the one in progress, a quiet one: it logs nothing and sends no
    /// report.
    void be_quiet() { quiet_ = true; }

    /// Begins a scan, unless one is in progress: makes all Bots sound that do not. Blocks for one
    /// exchange per Zorvin and Bot.
    void start();

    /// One look at which Bots the core services see; false when the scan has ended. Called by the
    /// timer on threads that the system starts, one at a time.
    bool check();

    /// The Bots that the latest scan has found so far. They count as reported from now on.
    [[nodiscard]] bot_list take_found();

    /// Forgets which Bots were reported.
    void forget_reported();

    /// Lets no further check begin, and waits until the one in flight has ended: one exchange, when
    /// the daemon is shutting down.
    void finish();

private:
    bool check_or_retry();
    void look_for_bots(const zorvin_entry& zorvin);
    void end_scan();
    void send_report();
    void stop_temporary_sounding(bot_record& bot);
    [[nodiscard]] bool is_over();

    client_state& state_;
    routing_table& routing_;
    rest_session& session_;
    const zorvin_identity& identity_;
    std::atomic<bool> quiet_{false};       // raised by the main loop, lowered by a scan's end
    std::atomic<bool> in_progress_{false}; // raised by start, lowered by a scan's end
    int countdown_ = 0;                    // checks that are left; check's while in progress
    bool report_sent_ = false;             // check's while in progress
    std::mutex lists_mutex_;               // guards both lists; never held across a request
    std::vector<std::string> found_;       // uuids, in the order in which the scan found them
    std::vector<std::string> reported_;    // uuids that the server was last told
    threading::timer timer_;               // last: its threads use all of the above
};

} // namespace csi_receiver
