/// One TCP connection that a client made to the lab.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "peers/sockets.h"

namespace peers {

/// For one thread. Every wait ends at once when the waker, which must live longer, is woken.
class connection {
public:
    connection(descriptor socket, std::uint16_t remote_port, const waker& stop);

    /// Waits for the next byte. False at the bound or on a stop.
    [[nodiscard]] bool wait(std::chrono::milliseconds bound);
    /// Reads what is there, or waits for it up to five seconds. 0 when the client has closed or
    /// nothing more came.
    [[nodiscard]] std::size_t read(char* to, std::size_t size);
    /// False when not all could be sent.
    [[nodiscard]] bool write(std::string_view text);
    /// Whether the client has closed the connection, or its side of it.
    [[nodiscard]] bool peer_gone() const;

    [[nodiscard]] std::uint16_t remote_port() const { return remote_port_; }

private:
    descriptor socket_;
    const std::uint16_t remote_port_;
    const waker& stop_;
    std::array<char, 4096> buffer_ = {};
    std::size_t begin_ = 0; ///< Of the bytes read but not yet taken,
    std::size_t end_ = 0;   ///< and their end.
};

} // namespace peers
