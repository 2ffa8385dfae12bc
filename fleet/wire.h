/// What the first HTTP client costs on the wire, counted packet by packet on the loopback device.
#pragma once

#include <cstddef>
#include <string_view>

#include "peers/sockets.h"

namespace csi_fleet {

/// For one thread. Packets are counted with their IP and TCP headers, in both directions.
class fleet_wire {
public:
    struct cost {
        std::size_t attach = 0; ///< Bytes from the first packet to the first GET.
        std::size_t polls = 0;  ///< GETs that were followed by another request,
        std::size_t bytes = 0;  ///< and the bytes of their exchanges.
        bool complete = true;   ///< The system had room for all packets until they were read.
    };

    /// Collects packets of the TCP port from now on. Throws std::runtime_error without the right to
    /// do that, which comes with root or a network namespace of one's own.
    explicit fleet_wire(std::uint16_t port);

    /// Counts what was collected since, and adds it up. To be called several times a second.
    [[nodiscard]] cost count();

private:
    void add(std::string_view packet);

    const std::uint16_t port_;
    csi_receiver::descriptor socket_;
    cost cost_;
    bool attaching_ = true;
    bool polling_ = false;
    std::size_t open_ = 0; ///< Bytes of the poll that is under way.
};

} // namespace csi_fleet
