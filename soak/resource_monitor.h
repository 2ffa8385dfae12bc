/// Samples what the daemon uses over a soak, and checks that it does not grow.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "soak/daemon_process.h"
#include "soak/report.h"

namespace csi_soak {

/// For one thread.
class resource_monitor {
public:
    explicit resource_monitor(reporter& report,
                              std::chrono::milliseconds period = std::chrono::milliseconds(250))
        : report_(report)
        , period_(period) {}

    /// Takes a sample unless the last one is more recent than the period; true when it did. `posts`
    /// is how many POSTs the daemon has sent so far.
    bool sample_if_due(const daemon_process& daemon, std::size_t posts);

    /// Checks all samples and reports the figures.
    void judge();

private:
    struct sample {
        double posts;
        double bytes;
        std::size_t descriptors;
        std::size_t threads;
    };
    using resource = std::size_t sample::*;
    struct range {
        std::size_t min;
        std::size_t max;
    };

    [[nodiscard]] range range_of(resource which, std::size_t begin, std::size_t end) const;
    void judge_level(const char* name, resource which, std::size_t limit);
    void judge_memory();

    reporter& report_;
    const std::chrono::milliseconds period_;
    steady_clock::time_point due_;
    std::vector<sample> samples_;
};

} // namespace csi_soak
