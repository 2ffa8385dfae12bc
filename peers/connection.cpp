#include "peers/connection.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace peers {
namespace {

/// A client that stops in the middle of a request must not hold its thread forever.
constexpr std::chrono::seconds io_timeout(5);

} // namespace

connection::connection(descriptor socket, std::uint16_t remote_port, const waker& stop)
    : socket_(std::move(socket))
    , remote_port_(remote_port)
    , stop_(stop) {
    const int yes = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

bool connection::wait(std::chrono::milliseconds timeout) {
    return !unread_.empty() || wait_readable(socket_, stop_, timeout);
}

std::size_t connection::read(char* to, std::size_t size) {
    if (!wait(io_timeout)) {
        return 0;
    }
    if (unread_.empty()) {
        const ssize_t count = recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        unread_ = {buffer_.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }
    const std::size_t copied = unread_.copy(to, size);
    unread_.remove_prefix(copied);
    return copied;
}

bool connection::write(std::string_view text) {
    while (!text.empty()) {
        if (!wait_writable(socket_, stop_, io_timeout)) {
            return false;
        }
        const ssize_t sent =
            send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool connection::closed_by_client() const {
    char next = 0;
    const ssize_t count = recv(socket_.get(), &next, 1, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

} // namespace peers
