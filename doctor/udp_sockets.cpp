#include "doctor/udp_sockets.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <sstream>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace csi_doctor {
namespace {

/// 32 bits of an address as the kernel prints them: in the machine's byte order.
std::string listed(std::uint32_t word) {
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08X", unsigned{htonl(word)});
    return text.data();
}

std::string zeros(std::size_t words) {
    return std::string(words * 8, '0');
}

/// Whether datagrams to 127.0.0.1 reach the address: an IPv6 socket receives IPv4 ones, too.
bool covers_loopback(const std::string& address) {
    constexpr std::uint32_t mapped = 0xffff; // precedes an IPv4 address within an IPv6 one
    const std::string loopback = listed(INADDR_LOOPBACK);
    return address == zeros(1) || address == loopback || address == zeros(4) ||
           address == zeros(2) + listed(mapped) + loopback ||
           address == zeros(2) + listed(mapped) + zeros(1);
}

} // namespace

bool receives_from_loopback(const std::string& list, std::uint16_t port) {
    std::array<char, 6> port_text{};
    std::snprintf(port_text.data(), port_text.size(), ":%04X", unsigned{port});
    std::istringstream lines(list);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream columns(line);
        std::string number;
        std::string local;
        std::string remote;
        columns >> number >> local >> remote;
        const std::size_t colon = local.find(':');
        const bool any_sender = remote.find_first_not_of("0:") == std::string::npos;
        if (colon != std::string::npos && local.substr(colon) == port_text.data() && any_sender &&
            covers_loopback(local.substr(0, colon))) {
            return true;
        }
    }
    return false;
}

} // namespace csi_doctor
