/// What the parts of the client tell each other.
#pragma once

#include <atomic>
#include <cstdint>

namespace csi_receiver {

/// Any thread may read and write a flag; the comment says who does.
struct client_state {
    /// The rate of sounding until the server sets another one.
    static constexpr std::int32_t default_sounding_rate = 10;

    // set by "rate"; read by everything that starts sounding
    std::atomic<std::int32_t> sounding_rate{default_sounding_rate};
    std::atomic<bool> status_update{false}; // raised by a scan's end, lowered by the main loop
    std::atomic<bool> scan_request{false}; // raised by attach, "scan" and tick, lowered by the loop
    std::atomic<bool> stop{false};         // main thread: a terminating signal was read

    /// The sounding rate as core services take it.
    [[nodiscard]] std::uint32_t core_rate() const {
        return static_cast<std::uint32_t>(sounding_rate.load());
    }

    /// Whether the daemon is about to end: nothing new is begun then.
    [[nodiscard]] bool shutting_down() const;
};

} // namespace csi_receiver
