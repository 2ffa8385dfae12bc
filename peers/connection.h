/// One TCP connection from an HTTP client.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "peers/sockets.h"

namespace peers {

/// For one thread. The waker, which must outlive the connection, ends every wait.
class connection {
public:
    connection(descriptor socket, std::uint16_t remote_port, const waker& stop);
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;

    /// Waits until there is something to read or the client has closed the connection. False when
    /// the time is up or the waker was woken.
    [[nodiscard]] bool wait(std::chrono::milliseconds timeout);
    /// Reads what has arrived, or else waits for it for up to five seconds. 0 when the client has
    /// closed the connection or nothing arrived.
    [[nodiscard]] std::size_t read(char* to, std::size_t size);
    /// False when the text was not sent whole.
    [[nodiscard]] bool write(std::string_view text);
    /// Whether the client has closed the connection, or its sending side.
    [[nodiscard]] bool closed_by_client() const;

    [[nodiscard]] std::uint16_t remote_port() const { return remote_port_; }

private:
    descriptor socket_;
    const std::uint16_t remote_port_;
    const waker& stop_;
    std::array<char, 4096> buffer_{};
    std::string_view unread_; // a part of the buffer
};

} // namespace peers
