#include "platform/socket.h"

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/descriptor.h"

namespace csi_receiver {
namespace {

/// Either kind of address, in the form that system calls take.
struct any_address {
    any_address(const std::string& text, std::uint16_t port) {
        if (make_inet_address(text, port, inet)) {
            length = sizeof inet;
            pointer = reinterpret_cast<const sockaddr*>(&inet);
        } else {
            make_local_address(text, local);
        }
    }
    any_address(const any_address&) = delete;
    any_address& operator=(const any_address&) = delete;

    sockaddr_in inet{};
    sockaddr_un local{};
    const sockaddr* pointer = reinterpret_cast<const sockaddr*>(&local);
    socklen_t length = local_address_length;
};

std::string dotted_text(const sockaddr_in& address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

} // namespace

bool make_inet_address(const std::string& text, std::uint16_t port, sockaddr_in& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) {
        return false;
    }
    address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr = parsed;
    return true;
}

bool is_inet_address(const std::string& text) {
    sockaddr_in scratch{};
    return make_inet_address(text, 0, scratch);
}

void make_local_address(const std::string& text, sockaddr_un& address) {
    // The path is a block of exactly 108 bytes, not a terminated string: a shorter text is padded
    // with zeros, a longer one cut. Kept for compatibility.
    static_assert(sizeof address.sun_path == 108 && sizeof address == local_address_length);
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, text.data(), std::min(text.size(), sizeof address.sun_path));
}

bool bind_address(int fd, const std::string& text, std::uint16_t port) {
    const any_address address(text, port);
    return bind(fd, address.pointer, address.length) == 0;
}

bool connect_address(int fd, const std::string& text, std::uint16_t port) {
    const any_address address(text, port);
    return connect(fd, address.pointer, address.length) == 0;
}

int bind_device(int fd, std::uint16_t family, std::uint16_t protocol, const std::string& ifname) {
    sockaddr_ll device{};
    static_assert(sizeof device == 20);
    device.sll_family = family;
    device.sll_protocol = htons(protocol);
    device.sll_ifindex = static_cast<int>(if_nametoindex(ifname.c_str()));
    const bool bound = bind(fd, reinterpret_cast<const sockaddr*>(&device), sizeof device) == 0;
    return bound ? device.sll_ifindex : 1;
}

int accept_peer(int fd, std::string& address, std::uint16_t& port) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int accepted = accept(fd, reinterpret_cast<sockaddr*>(&peer), &length);
    if (accepted >= 1) {
        fcntl(accepted, F_SETFD, FD_CLOEXEC);
        address = dotted_text(peer);
        port = ntohs(peer.sin_port);
    }
    return accepted;
}

ssize_t send_text(int fd, const std::string& text, int flags) {
    return send(fd, text.data(), text.size(), flags);
}

ssize_t send_to(int fd, const void* bytes, std::size_t length, const std::string& text,
                std::uint16_t port, int flags) {
    const any_address address(text, port);
    return sendto(fd, bytes, length, flags, address.pointer, address.length);
}

ssize_t send_text_to(int fd, const std::string& text, const std::string& address,
                     std::uint16_t port, int flags) {
    return send_to(fd, text.data(), text.size(), address, port, flags);
}

ssize_t recv_into(int fd, std::vector<char>& buffer, int flags) {
    return recv(fd, buffer.data(), buffer.size(), flags);
}

ssize_t recv_from(int fd, std::vector<char>& buffer, std::string& address, std::uint16_t* port) {
    sockaddr_un sender{};
    socklen_t length = local_address_length;
    const ssize_t count = recvfrom(fd, buffer.data(), buffer.size(), 0,
                                   reinterpret_cast<sockaddr*>(&sender), &length);
    if (count < 0) {
        return count;
    }
    if (sender.sun_family == AF_UNIX) {
        address.assign(sender.sun_path, strnlen(sender.sun_path, sizeof sender.sun_path));
    } else if (sender.sun_family == AF_INET) {
        sockaddr_in inet{};
        std::memcpy(&inet, &sender, sizeof inet);
        address = dotted_text(inet);
        if (port != nullptr) {
            *port = ntohs(inet.sin_port);
        }
    }
    return count;
}

int set_blocking(int fd, bool blocking) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        return flags;
    }
    return fcntl(fd, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

int set_reuse_address(int fd, int value) {
    return setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &value, sizeof value);
}

int set_keepalive(int fd, const keepalive& values) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &values.count, sizeof values.count);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &values.idle, sizeof values.idle);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &values.interval, sizeof values.interval);
    return setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
}

int socket_error(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    return error;
}

std::uint16_t local_port(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

int close_stream(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    shutdown(fd, SHUT_RDWR);
    return close(fd);
}

int interface_running(const std::string& ifname) {
    const descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::memcpy(request.ifr_name, ifname.data(),
                std::min(ifname.size(), sizeof request.ifr_name - 1));
    if (ioctl(any.get(), SIOCGIFFLAGS, &request) < 0) {
        return -1;
    }
    const int wanted = IFF_UP | IFF_RUNNING;
    return (request.ifr_flags & wanted) == wanted ? 1 : 0;
}

} // namespace csi_receiver
