/// Sockets for the peers, and waits for them that another thread can end.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/descriptor.h"

namespace peers {

using csi_receiver::descriptor;

/// Ends the waits that it is passed to, from any thread. They fail until reset() is called.
class waker {
public:
    /// Throws std::runtime_error when the process has no descriptor left.
    waker();

    void wake();
    void reset();
    [[nodiscard]] bool is_awake() const { return awake_; }
    [[nodiscard]] int get() const { return event_.get(); }

private:
    descriptor event_;
    std::atomic<bool> awake_{false};
};

/// A UDP socket bound to the address. Throws std::runtime_error with the address, the port and the
/// system's error text.
[[nodiscard]] descriptor bind_udp(const std::string& address, std::uint16_t port);

/// A listening TCP socket; port 0 lets the system choose. Throws like bind_udp, also when another
/// socket listens on the port.
[[nodiscard]] descriptor listen_tcp(const std::string& address, std::uint16_t port);

/// Wait until the socket can be read or written, without a limit if there is no timeout. False when
/// the time is up or the waker was woken, even if the socket is ready, too.
[[nodiscard]] bool wait_readable(const descriptor& socket, const waker& stop,
                                 std::optional<std::chrono::milliseconds> timeout);
[[nodiscard]] bool wait_writable(const descriptor& socket, const waker& stop,
                                 std::optional<std::chrono::milliseconds> timeout);

} // namespace peers
