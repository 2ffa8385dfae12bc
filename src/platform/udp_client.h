/// A connected UDP socket to a local daemon, made for one exchange of datagrams.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/poll_set.h"

namespace csi_receiver {

/// Owns its socket. Belongs to the thread that made it; never throws for the network's failures and
/// never logs.
class udp_client {
public:
    /// A longer datagram is cut to this many bytes.
    static constexpr std::size_t receive_buffer_size = 4096;

    /// Binds to a port that the system chooses and connects to the peer; fd() tells the success.
    udp_client(const std::string& address, std::uint16_t port);
    ~udp_client();
    udp_client(udp_client&& other) noexcept;
    udp_client& operator=(udp_client&& other) noexcept;
    udp_client(const udp_client&) = delete;
    udp_client& operator=(const udp_client&) = delete;

    /// The socket, or -1 when the connection failed.
    [[nodiscard]] int fd() const { return fd_; }
    /// The port that the system chose; 0 without a socket. Asks the system each time.
    [[nodiscard]] std::uint16_t local_port() const;

    /// True when the whole text went out in one datagram.
    [[nodiscard]] bool send(const std::string& text);

    /// Takes one waiting datagram into `out`, replacing its content; nothing waiting leaves it as
    /// it is. False when the socket is closed or reports an error.
    bool receive(std::string& out);

    /// Sends the request and waits once for at most `timeout_ms`. The reply is empty when nothing
    /// came; when several datagrams are read, the last one counts.
    [[nodiscard]] std::string exchange(const std::string& request, int timeout_ms);

private:
    void open();
    void close_socket();

    std::string address_;
    std::uint16_t port_;
    std::int32_t state_ = 3; // inert: set here, moved along, read by nobody
    std::int32_t fd_ = -1;
    poll_set polls_;
    std::vector<char> buffer_;
};

} // namespace csi_receiver
