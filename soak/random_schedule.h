/// Random order and random numbers for faults. The same seed gives the same ones again.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace csi_soak {

/// For one thread.
class random_schedule {
public:
    /// `size` is how many different things there are to schedule.
    random_schedule(std::uint32_t seed, std::size_t size);

    /// The index of the next thing. Every index comes once before any comes again.
    [[nodiscard]] std::size_t next();

    /// Both limits are included.
    [[nodiscard]] unsigned between(unsigned min, unsigned max);
    [[nodiscard]] std::chrono::milliseconds time_between(unsigned min_ms, unsigned max_ms);

private:
    std::mt19937 random_;
    const std::size_t size_;
    std::vector<std::size_t> left_; // in this round, in reverse order
};

} // namespace csi_soak
