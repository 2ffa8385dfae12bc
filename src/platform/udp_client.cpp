#include "platform/udp_client.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>

#include "platform/socket.h"

namespace csi_receiver {

udp_client::udp_client(const std::string& address, std::uint16_t port, const bound_function& bound)
    : address_(address)
    , port_(port)
    , buffer_(receive_buffer_size) {
    open(bound);
}

void udp_client::open(const bound_function& bound) {
    socket_ = descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd() < 1 || !bind_address(fd(), "0.0.0.0", 0)) {
        return;
    }
    local_port_ = csi_receiver::local_port(fd());
    if (bound) {
        bound(local_port_);
    }
    if (!connect_address(fd(), address_, port_)) {
        socket_.reset();
        local_port_ = 0;
        return;
    }
    discard_received();
    poll_set_add(polls_, fd(), poll_readable);
}

/// The system keeps what arrived before the connection, from whatever sender.
void udp_client::discard_received() {
    char byte = 0;
    while (recv(fd(), &byte, sizeof byte, MSG_DONTWAIT) >= 0) {
    }
}

udp_client::udp_client(udp_client&& other) noexcept
    : port_(0)
    , buffer_(receive_buffer_size) {
    *this = std::move(other);
}

udp_client& udp_client::operator=(udp_client&& other) noexcept {
    if (this != &other) {
        close_socket();
        poll_set_remove(other.polls_, other.fd());
        socket_ = std::move(other.socket_);
        address_ = other.address_;
        port_ = other.port_;
        local_port_ = other.local_port_;
        state_ = other.state_;
        poll_set_add(polls_, fd(), poll_readable);
    }
    return *this;
}

void udp_client::close_socket() {
    poll_set_remove(polls_, fd());
    if (fd() == 0) {
        static_cast<void>(socket_.release()); // never closes standard input
    }
    socket_.reset();
}

/// A stranger's datagram may still be on its way into the socket while that is connected.
bool udp_client::is_peer(const sockaddr_in& sender) const {
    sockaddr_in peer{};
    return make_inet_address(address_, port_, peer) && sender.sin_port == peer.sin_port &&
           sender.sin_addr.s_addr == peer.sin_addr.s_addr;
}

bool udp_client::send(const std::string& text) {
    if (fd() < 0) {
        return false;
    }
    return send_text(fd(), text, MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

bool udp_client::receive(std::string& out) {
    if (fd() < 0) {
        return false;
    }
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t count = recvfrom(fd(), buffer_.data(), buffer_.size(), 0,
                                   reinterpret_cast<sockaddr*>(&sender), &length);
    if (count < 0) {
        return errno == EAGAIN;
    }
    if (count > 0 && is_peer(sender)) {
        out.assign(buffer_.data(), static_cast<std::size_t>(count));
    }
    return true;
}

std::string udp_client::exchange(const std::string& request, int timeout_ms) {
    std::string reply;
    if (fd() < 1 || !send(request)) {
        return reply;
    }
    for (const poll_event& event : poll_set_wait(polls_, timeout_ms)) {
        if ((event.event & static_cast<std::uint32_t>(poll_readable)) != 0) {
            receive(reply);
        }
    }
    return reply;
}

} // namespace csi_receiver
