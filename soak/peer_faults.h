/// Faults of the core services and of the fusion daemon.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "peers/datagram_peer.h"
#include "peers/installation.h"
#include "soak/conversation.h"
#include "soak/random_schedule.h"
#include "soak/report.h"

namespace csi_soak {

/// One peer at a time fails. For one thread.
class peer_faults {
public:
    /// For an installation with two core services and a fusion daemon.
    peer_faults(peers::installation& installation, conversation_checker& conversation,
                reporter& report, std::uint32_t seed);

    /// Begins and ends faults when their time has come. Call it often.
    void step(steady_clock::time_point now);
    void end();
    /// How often each fault has occurred, by name.
    [[nodiscard]] const std::map<std::string, std::size_t>& counts() const { return counts_; }
    /// The name of the fault in progress; empty for none.
    [[nodiscard]] std::string in_progress() const { return failing_ == nullptr ? "" : name_; }

private:
    void begin(steady_clock::time_point now);

    conversation_checker& conversation_;
    reporter& report_;
    std::vector<peers::datagram_peer*> peers_;
    random_schedule schedule_;
    peers::datagram_peer* failing_ = nullptr;
    std::string name_;             // of the present or the last fault
    steady_clock::time_point due_; // when the next fault begins, or the present one ends
    std::map<std::string, std::size_t> counts_;
};

} // namespace csi_soak
