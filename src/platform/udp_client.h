/// A connected UDP socket to a local daemon, made for one exchange of datagrams.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <netinet/in.h>

#include "platform/descriptor.h"
#include "platform/poll_set.h"

namespace csi_receiver {

/// Owns its socket. Belongs to the thread that made it. Network failures neither throw nor log.
class udp_client {
public:
    /// A longer datagram is cut to this many bytes.
    static constexpr std::size_t receive_buffer_size = 4096;

    /// Called with the local port while the socket is bound but not connected yet: anybody can send
    /// to it then.
    using bound_function = std::function<void(std::uint16_t local_port)>;

    /// Binds to a port that the system chooses and connects to the peer. Check fd() for success.
    /// What came from anybody in between is discarded.
    udp_client(const std::string& address, std::uint16_t port, const bound_function& bound = {});
    ~udp_client() { close_socket(); }
    udp_client(udp_client&& other) noexcept;
    udp_client& operator=(udp_client&& other) noexcept;
    udp_client(const udp_client&) = delete;
    udp_client& operator=(const udp_client&) = delete;

    /// The socket, or -1 when the connection failed.
    [[nodiscard]] int fd() const { return socket_.get(); }
    /// The port that the system chose; 0 without a connection.
    [[nodiscard]] std::uint16_t local_port() const { return local_port_; }

    /// True when the whole text went out in one datagram.
    [[nodiscard]] bool send(const std::string& text);

    /// Replaces the content of `out` with one waiting datagram of the peer's; leaves it alone when
    /// none waits.
    /// False when the socket is closed or reports an error.
    bool receive(std::string& out);

    /// Sends the request and waits once, for `timeout_ms` at most. Returns the reply, empty when
    /// none came; of several datagrams read, the last one.
    [[nodiscard]] std::string exchange(const std::string& request, int timeout_ms);

private:
    void open(const bound_function& bound);
    void discard_received();
    [[nodiscard]] bool is_peer(const sockaddr_in& sender) const;
    void close_socket();

    std::string address_;
    std::uint16_t port_;
    std::uint16_t local_port_ = 0;
    std::int32_t state_ = 3; // inert: kept for compatibility
    descriptor socket_;
    poll_set polls_;
    std::vector<char> buffer_;
};

} // namespace csi_receiver
