/// Plays the fusion daemon, which runs the engines that need several Zorvins.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "peers/datagram_peer.h"
#include "peers/engines.h"

namespace peers {

constexpr const char* fusion_address = "127.0.0.1";
constexpr std::uint16_t fusion_port = 14312;

/// May be called from any thread. What it knows outlives a stop.
class fusion_daemon {
public:
    /// Named "fusion". Throws std::runtime_error when its address cannot be bound.
    explicit fusion_daemon(journal& record, std::uint32_t seed = 1);

    void answer_with(datagram_peer::substitute replies) { peer_.answer_with(std::move(replies)); }
    void stop() { peer_.stop(); }
    void start() { peer_.start(); }

    /// For its faults.
    [[nodiscard]] datagram_peer& peer() { return peer_; }

    [[nodiscard]] std::vector<engines::run> running_engines() const { return engines_.running(); }

private:
    std::string answer(const std::string& request);

    engines engines_;
    datagram_peer peer_; ///< Last: its thread uses the engines.
};

} // namespace peers
