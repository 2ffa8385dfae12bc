#include "soak/random_schedule.h"

#include <numeric>
#include <utility>

namespace csi_soak {

random_schedule::random_schedule(std::uint32_t seed, std::size_t size)
    : random_(seed)
    , size_(size) {}

std::size_t random_schedule::next() {
    if (left_.empty()) {
        left_.resize(size_);
        std::iota(left_.begin(), left_.end(), std::size_t{0});
        // Not std::shuffle: its result differs between C++ libraries.
        for (std::size_t unshuffled = size_; unshuffled > 1; --unshuffled) {
            std::swap(left_[unshuffled - 1], left_[random_() % unshuffled]);
        }
    }
    const std::size_t index = left_.back();
    left_.pop_back();
    return index;
}

unsigned random_schedule::between(unsigned min, unsigned max) {
    return min + static_cast<unsigned>(random_() % (max - min + 1));
}

std::chrono::milliseconds random_schedule::time_between(unsigned min_ms, unsigned max_ms) {
    return std::chrono::milliseconds(between(min_ms, max_ms));
}

} // namespace csi_soak
