/// Counts the bytes that an HTTP client and its server exchange over the loopback device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/descriptor.h"

namespace csi_fleet {

/// Counts packets with their IP and TCP headers, in both directions. Expects a single client.
/// For one thread.
class traffic_meter {
public:
    struct totals {
        std::size_t attach_bytes = 0; // from the first packet to the first GET
        std::size_t polls = 0;        // GETs that another request has followed
        std::size_t poll_bytes = 0;   // of these GETs and of their answers
        bool complete = true;         // no packet was dropped before it was counted
    };

    /// Collects the packets of the TCP port from now on. Throws std::runtime_error without the
    /// right to do so, which root has, and every user in a network namespace of their own.
    explicit traffic_meter(std::uint16_t port);

    /// Counts what has been collected since the last call. Call it several times a second, before
    /// the system has to drop packets.
    [[nodiscard]] totals count();

private:
    void add(std::string_view packet);

    const std::uint16_t port_;
    csi_receiver::descriptor socket_;
    totals totals_;
    bool attaching_ = true;
    bool polling_ = false;
    std::size_t open_poll_bytes_ = 0; // of the poll in progress
};

} // namespace csi_fleet
