/// Watches what the daemon takes from the system over a soak, and judges whether it stays level.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "soak/daemon.h"
#include "soak/report.h"

namespace csi_soak {

/// For one thread.
class soak_watch {
public:
    /// Looks at the daemon once in so many milliseconds.
    explicit soak_watch(soak_report& report,
                        std::chrono::milliseconds period = std::chrono::milliseconds(250))
        : report_(report)
        , period_(period) {}

    /// Looks at the daemon if the last look was long enough ago; false if it was not.
    bool step(const soak_daemon& daemon, std::size_t posts);

    /// Checks all that was seen and adds the figures.
    void judge();

private:
    struct sample {
        double posts;
        double bytes;
        std::size_t descriptors;
        std::size_t threads;
    };
    using member = std::size_t sample::*;
    struct range {
        std::size_t least;
        std::size_t most;
    };

    [[nodiscard]] range range_of(member what, std::size_t begin, std::size_t end) const;
    void judge_level(const char* name, member what, std::size_t limit);
    void judge_memory();

    soak_report& report_;
    std::chrono::milliseconds period_;
    soak_clock::time_point due_;
    std::vector<sample> samples_;
};

} // namespace csi_soak
