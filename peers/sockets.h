/// What the lab's peers need of the system: descriptors, listening sockets, a way to wake a wait.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <netinet/in.h>

#include "platform/descriptor.h"

namespace peers {

using csi_receiver::descriptor;

/// Lets another thread end a wait for a socket.
class waker {
public:
    waker(); ///< Throws std::runtime_error when the system has no descriptor left.

    void wake();
    void reset();
    [[nodiscard]] int get() const { return event_.get(); }

private:
    descriptor event_;
};

/// A UDP socket bound to the address. Throws std::runtime_error with address, port and the
/// system's text.
[[nodiscard]] descriptor bind_datagrams(const std::string& address, std::uint16_t port);

/// A TCP socket that listens there; port 0 lets the system choose. Throws as above, also when
/// another socket listens on the port.
[[nodiscard]] descriptor listen_on(const std::string& address, std::uint16_t port);

/// The port that the socket is bound to.
[[nodiscard]] std::uint16_t bound_port(const descriptor& from);

/// Waits until the socket can be read, or written. False when the bound has passed (none: no
/// bound) or the waker was woken before; the waker wins when both are ready.
[[nodiscard]] bool wait_readable(const descriptor& socket, const waker& stop,
                                 std::optional<std::chrono::milliseconds> bound);
[[nodiscard]] bool wait_writable(const descriptor& socket, const waker& stop,
                                 std::optional<std::chrono::milliseconds> bound);

} // namespace peers
