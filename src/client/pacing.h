/// When the main loop polls, when it requests a scan, and how long it waits.
#pragma once

#include <chrono>
#include <cstdint>

namespace csi_receiver {

/// Reads no clock: times are given from outside, on the monotonic clock. Main thread only.
class pacing {
public:
    using time = std::chrono::nanoseconds; // since the clock's zero, when the system started

    static constexpr std::int32_t default_poll_interval_ms = 100;

    /// `interval_ms` must be above 0. Counts from the next turn on.
    void set_poll_interval(std::int32_t interval_ms) { poll_interval_ms_ = interval_ms; }

    /// Whether more than the poll interval has passed since the last poll that was due; the next
    /// interval then begins at `now`.
    [[nodiscard]] bool poll_due(time now);

    /// The same for the scan that is requested every 30 s.
    [[nodiscard]] bool tick_due(time now);

    /// How long the loop waits at the end of a turn, in ms: a fifth of the poll interval, or twenty
    /// intervals after a failed attach or a lost session.
    [[nodiscard]] int wait_ms(bool attached) const;

private:
    std::int32_t poll_interval_ms_ = default_poll_interval_ms;
    time last_poll_{0};
    time last_tick_{0};
};

} // namespace csi_receiver
