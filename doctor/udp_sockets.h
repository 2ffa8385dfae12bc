/// The kernel's list of UDP sockets, as it stands in /proc/net/udp and udp6.
#pragma once

#include <cstdint>
#include <string>

namespace csi_doctor {

/// Whether one of the sockets gets what anybody on this machine sends to 127.0.0.1 and the port.
[[nodiscard]] bool hears_loopback(const std::string& list, std::uint16_t port);

} // namespace csi_doctor
