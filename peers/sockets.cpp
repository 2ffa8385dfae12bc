#include "peers/sockets.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "platform/socket.h"

namespace peers {
namespace {

constexpr int backlog = 128;

[[noreturn]] void fail(const std::string& address, std::uint16_t port, int error) {
    throw std::runtime_error(address + " port " + std::to_string(port) + ": " +
                             std::generic_category().message(error));
}

descriptor bind_socket(int type, const std::string& address, std::uint16_t port) {
    if (!csi_receiver::is_inet_address(address)) {
        throw std::runtime_error(address + " is not an IPv4 address");
    }
    descriptor result(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (!result.is_open()) {
        fail(address, port, errno);
    }
    if (type == SOCK_STREAM) {
        // Connections of an earlier run may linger on the port; a second listener still fails.
        csi_receiver::set_reuse_address(result.get(), 1);
    }
    if (!csi_receiver::bind_address(result.get(), address, port)) {
        fail(address, port, errno);
    }
    return result;
}

int poll_timeout(std::optional<std::chrono::milliseconds> timeout) {
    if (!timeout) {
        return -1;
    }
    const auto count = std::clamp<std::chrono::milliseconds::rep>(timeout->count(), 0, INT_MAX);
    return static_cast<int>(count);
}

bool wait_ready(const descriptor& socket, short events, const waker& stop,
                std::optional<std::chrono::milliseconds> timeout) {
    std::array<pollfd, 2> polled{{{socket.get(), events, 0}, {stop.get(), POLLIN, 0}}};
    const int ready = poll(polled.data(), polled.size(), poll_timeout(timeout));
    return ready > 0 && polled[1].revents == 0 && polled[0].revents != 0;
}

} // namespace

waker::waker()
    : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event_.is_open()) {
        throw std::runtime_error("eventfd: " + std::generic_category().message(errno));
    }
}

void waker::wake() {
    awake_ = true;
    eventfd_write(event_.get(), 1);
}

void waker::reset() {
    awake_ = false;
    eventfd_t count = 0;
    eventfd_read(event_.get(), &count);
}

descriptor bind_udp(const std::string& address, std::uint16_t port) {
    return bind_socket(SOCK_DGRAM, address, port);
}

descriptor listen_tcp(const std::string& address, std::uint16_t port) {
    descriptor result = bind_socket(SOCK_STREAM, address, port);
    if (listen(result.get(), backlog) != 0) {
        fail(address, port, errno);
    }
    return result;
}

bool wait_readable(const descriptor& socket, const waker& stop,
                   std::optional<std::chrono::milliseconds> timeout) {
    return wait_ready(socket, POLLIN, stop, timeout);
}

bool wait_writable(const descriptor& socket, const waker& stop,
                   std::optional<std::chrono::milliseconds> timeout) {
    return wait_ready(socket, POLLOUT, stop, timeout);
}

} // namespace peers
