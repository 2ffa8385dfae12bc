/// Plays the fusion daemon, which runs the engines that need several Zorvins.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "peers/datagram_peer.h"
#include "peers/engines.h"
#include "peers/journal.h"

namespace peers {

/// May be called from any thread. The engines keep running while the daemon is stopped.
class fusion_daemon {
public:
    /// Named "fusion" in the journal. Throws std::runtime_error when its address cannot be bound.
    explicit fusion_daemon(journal& record, std::uint32_t seed = 1);

    void answer_with(datagram_peer::reply_override replies) {
        peer_.answer_with(std::move(replies));
    }
    void stop() { peer_.stop(); }
    void start() { peer_.start(); }

    /// Gives access to its name and faults.
    [[nodiscard]] datagram_peer& peer() { return peer_; }

    [[nodiscard]] std::vector<running_engine> running_engines() const { return engines_.running(); }

private:
    std::string answer(const std::string& request);

    engines engines_;
    datagram_peer peer_; // last: its thread uses the engines
};

} // namespace peers
