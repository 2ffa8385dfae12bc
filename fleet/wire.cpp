#include "fleet/wire.h"

#include <array>
#include <stdexcept>

#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/socket.h>

#include "platform/socket.h"

namespace csi_fleet {
namespace {

std::size_t byte_at(std::string_view packet, std::size_t at) {
    return static_cast<unsigned char>(packet[at]);
}

std::size_t port_at(std::string_view packet, std::size_t at) {
    return byte_at(packet, at) * 256 + byte_at(packet, at + 1);
}

} // namespace

fleet_wire::fleet_wire(std::uint16_t port)
    : port_(port)
    , socket_(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_IP))) {
    // Each packet would be seen twice on this device: as it goes out and as it comes in.
    const int yes = 1;
    if (setsockopt(socket_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes, sizeof yes) != 0) {
        throw std::runtime_error("the system does not let packets be counted");
    }
    csi_receiver::bind_device(socket_.get(), AF_PACKET, ETH_P_IP, "lo");
}

fleet_wire::cost fleet_wire::count() {
    std::array<char, 65536> buffer = {};
    ssize_t length = 0;
    while ((length = recv(socket_.get(), buffer.data(), buffer.size(), 0)) >= 0) {
        add({buffer.data(), static_cast<std::size_t>(length)});
    }
    tpacket_stats seen = {};
    socklen_t size = sizeof seen;
    getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &seen, &size);
    cost_.complete = cost_.complete && seen.tp_drops == 0;
    return cost_;
}

void fleet_wire::add(std::string_view packet) {
    constexpr std::size_t least = 40; // both headers without options
    constexpr std::size_t tcp = 6;
    if (packet.size() < least || byte_at(packet, 9) != tcp) {
        return;
    }
    const std::size_t header = byte_at(packet, 0) % 16 * 4;
    const bool to_server = port_at(packet, header + 2) == port_;
    if (!to_server && port_at(packet, header) != port_) {
        return;
    }
    const std::string_view text = packet.substr(header + byte_at(packet, header + 12) / 16 * 4);
    if (to_server && !text.empty()) {
        cost_.polls += polling_ ? 1 : 0;
        cost_.bytes += open_;
        open_ = 0;
        polling_ = text.substr(0, 4) == "GET ";
        attaching_ = attaching_ && !polling_;
    }
    open_ += polling_ ? packet.size() : 0;
    cost_.attach += attaching_ ? packet.size() : 0;
}

} // namespace csi_fleet
