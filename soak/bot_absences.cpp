#include "soak/bot_absences.h"

#include <utility>

namespace csi_soak {

bot_absences::bot_absences(peers::installation& installation, std::vector<peers::routed_bot> bots,
                           std::uint32_t seed)
    : installation_(installation)
    , bots_(std::move(bots))
    , schedule_(seed, bots_.size()) {}

void bot_absences::step(steady_clock::time_point now) {
    if (now < due_) {
        return;
    }
    ++changes_;
    if (absent_) {
        installation_.set_present(bots_[*absent_].uuid, true);
        absent_.reset();
        due_ = now + schedule_.time_between(500, 3000);
    } else {
        absent_ = schedule_.next();
        installation_.set_present(bots_[*absent_].uuid, false);
        due_ = now + schedule_.time_between(200, 4000);
    }
}

} // namespace csi_soak
