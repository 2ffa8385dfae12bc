#include "soak/stranger.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <utility>

#include <sys/socket.h>

#include "platform/socket.h"

namespace csi_soak {
namespace {

constexpr const char* address = "127.0.0.99";

/// Each would do harm if the daemon took it for an answer: the first by its type.
constexpr std::array<const char*, 4> forged_replies = {
    R"({"success":"yes"})", R"({"ping":1,"success":true,"bots":[{"uuid":"999","count":1}]})",
    R"({"success":true,"state":"forged","engineType":"cpd"})", "rubbish"};

/// The first and the last port that the system gives away.
std::pair<unsigned, unsigned> port_range() {
    std::pair<unsigned, unsigned> result(32768, 60999);
    std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> result.first >> result.second;
    return result;
}

} // namespace

stranger::stranger(reporter& report, std::uint32_t seed)
    : report_(report)
    , schedule_(seed, 1)
    , socket_(peers::bind_udp(address, 0))
    , due_(steady_clock::now() + schedule_.time_between(1000, 5000)) {}

stranger::~stranger() {
    leave();
}

void stranger::step(steady_clock::time_point now) {
    if (now < due_) {
        return;
    }
    if (thread_.joinable()) {
        leave();
        due_ = now + schedule_.time_between(4000, 12'000);
        return;
    }
    ++visits_;
    const auto duration = schedule_.time_between(2000, 6000);
    due_ = now + duration;
    report_.print("forged replies from a stranger for " + in_seconds(duration));
    thread_ = std::thread([this] { spray(); });
}

void stranger::leave() {
    if (thread_.joinable()) {
        leaving_ = true;
        thread_.join();
        leaving_ = false;
    }
}

/// In bursts, so that the daemon gets its share of the processor.
void stranger::spray() {
    constexpr std::size_t burst = 500;
    const auto [first, last] = port_range();
    const std::size_t ports = last - first + 1;
    std::size_t sent = 0;
    while (!leaving_) {
        for (std::size_t end = sent + burst; sent < end; ++sent) {
            const unsigned port = first + static_cast<unsigned>(sent % ports);
            // Another one in the next round, whatever the number of ports.
            const char* const text = forged_replies[(sent + sent / ports) % forged_replies.size()];
            csi_receiver::send_text_to(socket_.get(), text, "127.0.0.1",
                                       static_cast<std::uint16_t>(port), MSG_DONTWAIT);
        }
        datagrams_ += burst;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace csi_soak
