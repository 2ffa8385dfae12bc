#include "doctor/addresses.h"

#include <cstdint>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "core/core_request.h"
#include "platform/descriptor.h"
#include "platform/socket.h"

namespace csi_doctor {
namespace {

constexpr struct {
    std::uint32_t first;
    std::string_view name;
} documentation_blocks[] = {
    {0xc0000200, "192.0.2.0/24"}, {0xc6336400, "198.51.100.0/24"}, {0xcb007100, "203.0.113.0/24"}};

constexpr const char* answers_discarded =
    ": the daemon discards answers, because they come from another address";

/// 0.0.0.0 for any text that is not an IPv4 address.
std::uint32_t parse_ipv4(const std::string& text) {
    sockaddr_in parsed{};
    return csi_receiver::make_inet_address(text, 0, parsed) ? ntohl(parsed.sin_addr.s_addr) : 0;
}

} // namespace

std::optional<address_fault> find_core_address_fault(const std::string& address) {
    if (!csi_receiver::is_inet_address(address)) {
        return address_fault{"item_address_not_ipv4"_code, "is not an IPv4 address",
                             ": every request to this core service fails, and nothing is logged",
                             "write the IPv4 address of the Bot's core service"};
    }
    const std::uint32_t bits = parse_ipv4(address);
    if (bits == INADDR_ANY) {
        return address_fault{"item_address_any"_code, "is not the address of a machine",
                             answers_discarded,
                             "write 127.0.0.1 for a core service on this machine"};
    }
    if (bits == INADDR_BROADCAST) {
        return address_fault{"item_address_broadcast"_code, "is the broadcast address",
                             ": the daemon cannot send to it, and nothing is logged",
                             "write the address of one core service; each Bot has its own item"};
    }
    if (IN_MULTICAST(bits)) {
        return address_fault{"item_address_multicast"_code, "is a multicast address",
                             answers_discarded,
                             "write the core service's own address, as \"ip address\" shows it "
                             "there"};
    }
    return std::nullopt;
}

std::string_view documentation_block(const std::string& address) {
    const std::uint32_t bits = parse_ipv4(address);
    for (const auto& block : documentation_blocks) {
        if ((bits & 0xffffff00) == block.first) {
            return block.name;
        }
    }
    in6_addr ipv6{};
    const bool documented = inet_pton(AF_INET6, address.c_str(), &ipv6) == 1 &&
                            ipv6.s6_addr[0] == 0x20 && ipv6.s6_addr[1] == 0x01 &&
                            ipv6.s6_addr[2] == 0x0d && ipv6.s6_addr[3] == 0xb8;
    return documented ? "2001:db8::/32" : "";
}

bool is_local_broadcast(const std::string& address) {
    const csi_receiver::descriptor probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    constexpr std::uint16_t port = csi_receiver::core_service_port; // connecting sends nothing
    if (csi_receiver::connect_address(probe.get(), address, port)) {
        return false;
    }
    const int on = 1;
    setsockopt(probe.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    return csi_receiver::connect_address(probe.get(), address, port);
}

} // namespace csi_doctor
