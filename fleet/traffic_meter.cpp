#include "fleet/traffic_meter.h"

#include <array>
#include <stdexcept>

#include <arpa/inet.h>
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

traffic_meter::traffic_meter(std::uint16_t port)
    : port_(port)
    , socket_(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_IP))) {
    // The loopback device shows each packet twice, going out and coming in.
    const int ignore = 1;
    if (setsockopt(socket_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &ignore, sizeof ignore) !=
        0) {
        throw std::runtime_error("no permission to capture packets");
    }
    csi_receiver::bind_device(socket_.get(), AF_PACKET, ETH_P_IP, "lo");
}

traffic_meter::totals traffic_meter::count() {
    std::array<char, 65536> buffer{};
    ssize_t length = 0;
    while ((length = recv(socket_.get(), buffer.data(), buffer.size(), 0)) >= 0) {
        add({buffer.data(), static_cast<std::size_t>(length)});
    }
    tpacket_stats statistics{};
    socklen_t size = sizeof statistics;
    getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
    totals_.complete = totals_.complete && statistics.tp_drops == 0;
    return totals_;
}

void traffic_meter::add(std::string_view packet) {
    constexpr std::size_t min_size = 40; // both headers without options
    constexpr std::size_t tcp = 6;
    if (packet.size() < min_size || byte_at(packet, 9) != tcp) {
        return;
    }
    const std::size_t tcp_header = byte_at(packet, 0) % 16 * 4;
    const bool to_server = port_at(packet, tcp_header + 2) == port_;
    if (!to_server && port_at(packet, tcp_header) != port_) {
        return;
    }
    const std::size_t text = tcp_header + byte_at(packet, tcp_header + 12) / 16 * 4;
    const std::string_view payload = packet.substr(text);
    if (to_server && !payload.empty()) {
        totals_.polls += polling_ ? 1 : 0;
        totals_.poll_bytes += open_poll_bytes_;
        open_poll_bytes_ = 0;
        polling_ = payload.substr(0, 4) == "GET ";
        attaching_ = attaching_ && !polling_;
    }
    open_poll_bytes_ += polling_ ? packet.size() : 0;
    totals_.attach_bytes += attaching_ ? packet.size() : 0;
}

} // namespace csi_fleet
