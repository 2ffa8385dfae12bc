/// Bots that go away and come back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "peers/installation.h"
#include "soak/random_schedule.h"
#include "soak/report.h"

namespace csi_soak {

/// One Bot at a time is away, so that scans take different times. For one thread.
class bot_absences {
public:
    bot_absences(peers::installation& installation, std::vector<peers::routed_bot> bots,
                 std::uint32_t seed);

    /// Lets a Bot go or come back when its time has come. Call it often.
    void step(steady_clock::time_point now);
    [[nodiscard]] std::size_t changes() const { return changes_; }

private:
    peers::installation& installation_;
    const std::vector<peers::routed_bot> bots_;
    random_schedule schedule_;
    std::optional<std::size_t> absent_; // index of the Bot that is away
    steady_clock::time_point due_;
    std::size_t changes_ = 0;
};

} // namespace csi_soak
