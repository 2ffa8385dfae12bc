#include "peers/radio.h"

#include <algorithm>

namespace peers {

radio::radio(timing times)
    : times_(times) {}

void radio::add_interface(const std::string& name) {
    if (std::find(interfaces_.begin(), interfaces_.end(), name) == interfaces_.end()) {
        interfaces_.push_back(name);
    }
}

bool radio::del_interface(const std::string& name) {
    const auto found = std::find(interfaces_.begin(), interfaces_.end(), name);
    if (found == interfaces_.end()) {
        return false;
    }
    interfaces_.erase(found);
    return true;
}

void radio::sound(const std::string& uuid, std::uint32_t rate, time_point now) {
    bot& which = bots_[uuid];
    change(which, rate, which.present, now);
}

void radio::set_present(const std::string& uuid, bool present, time_point now) {
    bot& which = bots_[uuid];
    change(which, which.rate, present, now);
}

std::vector<radio::heard_bot> radio::heard(time_point now) const {
    // Fits a 32-bit integer, signed or not.
    constexpr double max_count = 2147483647.0;
    std::vector<heard_bot> result;
    for (const auto& [uuid, which] : bots_) {
        if (is_heard(which, now)) {
            const double count = std::clamp(count_at(which, now), 1.0, max_count);
            result.push_back({uuid, static_cast<std::uint32_t>(count)});
        }
    }
    return result;
}

std::vector<radio::sounded_bot> radio::sounded() const {
    std::vector<sounded_bot> result;
    for (const auto& [uuid, which] : bots_) {
        if (which.rate > 0) {
            result.push_back({uuid, which.rate});
        }
    }
    return result;
}

std::vector<std::string> radio::absent() const {
    std::vector<std::string> result;
    for (const auto& [uuid, which] : bots_) {
        if (!which.present) {
            result.push_back(uuid);
        }
    }
    return result;
}

void radio::change(bot& which, std::uint32_t rate, bool present, time_point now) const {
    const bool was_active = which.active();
    const bool was_heard = is_heard(which, now);
    which.count = count_at(which, now);
    which.counted_since = now;
    which.rate = rate;
    which.present = present;
    if (which.active() && !was_active) {
        // A Bot that is still heard stays so.
        which.active_since = was_heard ? now - times_.appear_after : now;
    } else if (!which.active() && was_active) {
        which.heard_until = was_heard ? now + times_.vanish_after : now;
    }
}

bool radio::is_heard(const bot& which, time_point now) const {
    return which.active() ? now - which.active_since >= times_.appear_after
                          : now < which.heard_until;
}

double radio::count_at(const bot& which, time_point now) {
    if (!which.active()) {
        return which.count;
    }
    const std::chrono::duration<double> seconds = now - which.counted_since;
    return which.count + seconds.count() * which.rate;
}

} // namespace peers
