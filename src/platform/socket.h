/// Free functions over POSIX sockets and addresses.
///
/// All take a plain descriptor, never throw and never log; a failure is the return value, and errno
/// stays as the system call left it. An address text that is an IPv4 literal means an Internet
/// address; any other text is the path of a local socket. Any thread may call them.
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

/// What set_keepalive sets: probes, then seconds.
struct keepalive {
    int count;
    int idle;
    int interval;
};

/// Fills an Internet address; false, with `address` untouched, when `text` is no IPv4 literal.
[[nodiscard]] bool make_inet_address(const std::string& text, std::uint16_t port,
                                     sockaddr_in& address);
[[nodiscard]] bool is_inet_address(const std::string& text);

/// Fills the address of a local socket. Its length for the system is always local_address_length.
void make_local_address(const std::string& text, sockaddr_un& address);

/// Family and the whole path block, whatever the length of the path in it.
constexpr socklen_t local_address_length = 110;

[[nodiscard]] bool bind_address(int fd, const std::string& text, std::uint16_t port);
[[nodiscard]] bool connect_address(int fd, const std::string& text, std::uint16_t port);

/// Binds a packet socket to a network interface. Returns the interface's index, and 1 when the bind
/// failed (which cannot be told from the interface with index 1).
int bind_device(int fd, std::uint16_t family, std::uint16_t protocol, const std::string& ifname);

/// Accepts a connection and tells the peer's dotted address and port. Returns the new descriptor,
/// close-on-exec and the caller's to close; below 1 as accept returned it.
int accept_peer(int fd, std::string& address, std::uint16_t& port);

/// Sends the text without a terminator. Return the bytes sent, or -1.
ssize_t send_text(int fd, const std::string& text, int flags);
ssize_t send_to(int fd, const void* bytes, std::size_t length, const std::string& text,
                std::uint16_t port, int flags);
ssize_t send_text_to(int fd, const std::string& text, const std::string& address,
                     std::uint16_t port, int flags);

/// Reads into the whole of `buffer`. Return the bytes read, 0 or -1.
ssize_t recv_into(int fd, std::vector<char>& buffer, int flags);

/// Also tells the sender: the path of a local socket, or the dotted text of an Internet address
/// and, where `port` is given, its port.
ssize_t recv_from(int fd, std::vector<char>& buffer, std::string& address, std::uint16_t* port);

/// Return what fcntl or setsockopt returned last; below 0 is a failure.
int set_blocking(int fd, bool blocking);
int set_reuse_address(int fd, int value);
int set_keepalive(int fd, const keepalive& values);

/// The error that is pending on the socket (an errno value), taking it off.
int socket_error(int fd);

/// The port the socket is bound to; 0 when it has none.
std::uint16_t local_port(int fd);

/// Ends a TCP connection in both directions and closes the descriptor.
int close_stream(int fd);

/// 1 when the interface is up and running, 0 when it is not, -1 when there is none of that name.
int interface_running(const std::string& ifname);

} // namespace csi_receiver
