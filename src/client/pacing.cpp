#include "client/pacing.h"

#include <algorithm>
#include <climits>

namespace csi_receiver {
namespace {

constexpr std::chrono::seconds tick_period{30};

bool is_due(pacing::time now, pacing::time period, pacing::time& last) {
    if (now - last <= period) {
        return false;
    }
    last = now;
    return true;
}

} // namespace

bool pacing::poll_due(time now) {
    return is_due(now, std::chrono::milliseconds(poll_interval_ms_), last_poll_);
}

bool pacing::tick_due(time now) {
    return is_due(now, tick_period, last_tick_);
}

int pacing::wait_ms(bool attached) const {
    if (attached) {
        return poll_interval_ms_ / 5;
    }
    const std::int64_t back_off_ms = std::int64_t{poll_interval_ms_} * 20;
    return static_cast<int>(std::min<std::int64_t>(back_off_ms, INT_MAX));
}

} // namespace csi_receiver
