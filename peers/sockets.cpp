#include "peers/sockets.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace peers {
namespace {

constexpr int backlog = 128;

sockaddr_in make_address(const std::string& address, std::uint16_t port) {
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &result.sin_addr) != 1) {
        throw std::runtime_error(address + " is no IPv4 address");
    }
    return result;
}

[[noreturn]] void fail(const std::string& address, std::uint16_t port, int error) {
    throw std::runtime_error(address + " port " + std::to_string(port) + ": " +
                             std::generic_category().message(error));
}

descriptor bound_socket(int type, const std::string& address, std::uint16_t port) {
    const sockaddr_in where = make_address(address, port);
    descriptor result(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (result.get() < 0) {
        fail(address, port, errno);
    }
    if (type == SOCK_STREAM) {
        // Connections of an earlier run may linger on the port; another listener still fails.
        const int yes = 1;
        setsockopt(result.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    }
    if (bind(result.get(), reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) {
        fail(address, port, errno);
    }
    return result;
}

int poll_bound(std::optional<std::chrono::milliseconds> bound) {
    if (!bound) {
        return -1;
    }
    const auto count = std::clamp<std::chrono::milliseconds::rep>(bound->count(), 0, INT_MAX);
    return static_cast<int>(count);
}

bool wait_ready(const descriptor& socket, short events, const waker& stop,
                std::optional<std::chrono::milliseconds> bound) {
    std::array<pollfd, 2> waited = {{{socket.get(), events, 0}, {stop.get(), POLLIN, 0}}};
    const int ready = poll(waited.data(), waited.size(), poll_bound(bound));
    return ready > 0 && waited[1].revents == 0 && waited[0].revents != 0;
}

} // namespace

waker::waker()
    : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event_.get() < 0) {
        throw std::runtime_error("eventfd: " + std::generic_category().message(errno));
    }
}

void waker::wake() {
    eventfd_write(event_.get(), 1);
}

void waker::reset() {
    eventfd_t count = 0;
    eventfd_read(event_.get(), &count);
}

descriptor bind_datagrams(const std::string& address, std::uint16_t port) {
    return bound_socket(SOCK_DGRAM, address, port);
}

descriptor listen_on(const std::string& address, std::uint16_t port) {
    descriptor result = bound_socket(SOCK_STREAM, address, port);
    if (listen(result.get(), backlog) != 0) {
        fail(address, port, errno);
    }
    return result;
}

std::uint16_t bound_port(const descriptor& from) {
    sockaddr_in where = {};
    socklen_t size = sizeof where;
    getsockname(from.get(), reinterpret_cast<sockaddr*>(&where), &size);
    return ntohs(where.sin_port);
}

bool wait_readable(const descriptor& socket, const waker& stop,
                   std::optional<std::chrono::milliseconds> bound) {
    return wait_ready(socket, POLLIN, stop, bound);
}

bool wait_writable(const descriptor& socket, const waker& stop,
                   std::optional<std::chrono::milliseconds> bound) {
    return wait_ready(socket, POLLOUT, stop, bound);
}

} // namespace peers
