/// The kernel's list of UDP sockets, as /proc/net/udp and udp6 show it.
#pragma once

#include <cstdint>
#include <string>

namespace csi_doctor {

/// Whether one of the sockets receives what any process on this machine sends to 127.0.0.1 and the
/// port.
[[nodiscard]] bool receives_from_loopback(const std::string& list, std::uint16_t port);

} // namespace csi_doctor
