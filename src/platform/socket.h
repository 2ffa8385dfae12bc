/// Free functions over POSIX sockets and addresses.
///
/// All take a plain descriptor, never throw and never log. Failures are return values, and errno is
/// as the system call left it. An address text that is an IPv4 literal is an Internet address; any
/// other text is the path of a local socket. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

namespace csi_receiver {

/// What set_keepalive sets.
struct keepalive {
    int count;    // probes
    int idle;     // seconds
    int interval; // seconds
};

/// Fills an Internet address. False, with `address` untouched, when `text` is not an IPv4 literal.
[[nodiscard]] bool make_inet_address(const std::string& text, std::uint16_t port,
                                     sockaddr_in& address);
[[nodiscard]] bool is_inet_address(const std::string& text);

/// Fills the address of a local socket, whose length is always local_address_length.
void make_local_address(const std::string& text, sockaddr_un& address);

/// The family and the whole path block, whatever the length of the path.
constexpr socklen_t local_address_length = 110;

[[nodiscard]] bool bind_address(int fd, const std::string& text, std::uint16_t port);
[[nodiscard]] bool connect_address(int fd, const std::string& text, std::uint16_t port);

/// Binds a packet socket to a network interface. Returns the index of the interface; 1 also means
/// that the bind failed.
int bind_device(int fd, std::uint16_t family, std::uint16_t protocol, const std::string& ifname);

/// Accepts a connection and fills in the peer's dotted address and port. Returns the descriptor,
/// which is close-on-exec and which the caller closes, or the result of accept when that is
/// below 1.
int accept_peer(int fd, std::string& address, std::uint16_t& port);

/// Send without a terminator. Return the number of bytes sent, or -1.
ssize_t send_text(int fd, const std::string& text, int flags);
ssize_t send_to(int fd, const void* bytes, std::size_t length, const std::string& text,
                std::uint16_t port, int flags);
ssize_t send_text_to(int fd, const std::string& text, const std::string& address,
                     std::uint16_t port, int flags);

/// Reads as much as `buffer` holds. Returns the number of bytes read, 0 or -1.
ssize_t recv_into(int fd, std::vector<char>& buffer, int flags);

/// Also fills in the sender: the path of a local socket, or the dotted address of an Internet
/// socket and its port, unless `port` is null.
ssize_t recv_from(int fd, std::vector<char>& buffer, std::string& address, std::uint16_t* port);

/// Return the result of the last fcntl or setsockopt; below 0 on failure.
int set_blocking(int fd, bool blocking);
int set_reuse_address(int fd, int value);
int set_keepalive(int fd, const keepalive& values);

/// Takes the pending error off the socket and returns it: an errno value, or 0.
int socket_error(int fd);

/// The port that the socket is bound to; 0 when it is not bound.
std::uint16_t local_port(int fd);

/// Ends a TCP connection in both directions and closes the descriptor.
int close_stream(int fd);

/// 1 when the interface is up and running, 0 when it is not, -1 when there is no such interface.
int interface_running(const std::string& ifname);

} // namespace csi_receiver
