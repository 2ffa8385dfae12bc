#include "soak/peer_faults.h"

#include <array>

namespace csi_soak {
namespace {

struct fault {
    const char* name;
    void (*apply)(peers::datagram_peer&, random_schedule&);
};

// Delays stay below the daemon's timeout: requests carry no number, so the daemon could take a late
// answer for the answer to a later request from the same port.
constexpr std::array<fault, 5> faults = {{
    {"stopped", [](auto& peer, auto&) { peer.stop(); }},
    {"silent", [](auto& peer, auto&) { peer.set_silent(true); }},
    {"slow", [](auto& peer, auto& schedule) { peer.set_delay(schedule.time_between(100, 1500)); }},
    {"answering twice", [](auto& peer, auto&) { peer.set_duplicate(true); }},
    {"losing datagrams",
     [](auto& peer, auto& schedule) { peer.set_loss(schedule.between(200, 600) / 1000.0); }},
}};

} // namespace

peer_faults::peer_faults(peers::installation& installation, conversation_checker& conversation,
                         reporter& report, std::uint32_t seed)
    : conversation_(conversation)
    , report_(report)
    , peers_({&installation.core(0).peer(), &installation.core(1).peer(),
              &installation.fusion()->peer()})
    , schedule_(seed, peers_.size() * faults.size())
    , due_(steady_clock::now() + schedule_.time_between(1000, 3000)) {}

void peer_faults::step(steady_clock::time_point now) {
    if (now < due_) {
        return;
    }
    if (failing_ != nullptr) {
        end();
        due_ = now + schedule_.time_between(1500, 3500);
    } else {
        begin(now);
    }
}

void peer_faults::begin(steady_clock::time_point now) {
    const std::size_t next = schedule_.next();
    failing_ = peers_[next / faults.size()];
    const fault& chosen = faults[next % faults.size()];
    const auto duration = schedule_.time_between(2000, 6000);
    due_ = now + duration;
    name_ = failing_->name() + " " + chosen.name;
    ++counts_[name_];
    report_.print(name_ + " for " + in_seconds(duration));
    conversation_.begin_peer_fault(failing_->name());
    chosen.apply(*failing_, schedule_);
}

void peer_faults::end() {
    if (failing_ == nullptr) {
        return;
    }
    failing_->set_silent(false);
    failing_->set_delay(std::chrono::milliseconds(0));
    failing_->set_duplicate(false);
    failing_->set_loss(0);
    failing_->start();
    conversation_.end_peer_fault(failing_->name());
    report_.print(failing_->name() + " works again");
    failing_ = nullptr;
}

} // namespace csi_soak
