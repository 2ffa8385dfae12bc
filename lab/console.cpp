#include "lab/console.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace csi_lab {
namespace {

int make_signal_descriptor() {
    sigset_t signals{};
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

} // namespace

console::console()
    : signals_(make_signal_descriptor()) {
    if (!signals_.is_open()) {
        throw std::runtime_error("signalfd: " + std::generic_category().message(errno));
    }
}

std::optional<std::string> console::next_line() {
    while (true) {
        if (auto line = take_line()) {
            return line;
        }
        // poll ignores a negative descriptor.
        std::array<pollfd, 2> polled{
            {{signals_.get(), POLLIN, 0}, {input_open_ ? STDIN_FILENO : -1, POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0) {
            continue;
        }
        if (polled[0].revents != 0) {
            return std::nullopt;
        }
        read_input();
    }
}

bool console::wait(const peers::waker& event, std::chrono::milliseconds time) {
    std::array<pollfd, 2> polled{{{signals_.get(), POLLIN, 0}, {event.get(), POLLIN, 0}}};
    poll(polled.data(), polled.size(), static_cast<int>(time.count()));
    return polled[0].revents == 0;
}

std::optional<std::string> console::take_line() {
    const std::size_t end = buffer_.find('\n');
    if (end == std::string::npos && (input_open_ || buffer_.empty())) {
        return std::nullopt;
    }
    std::string line = buffer_.substr(0, end);
    buffer_.erase(0, end == std::string::npos ? end : end + 1);
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

void console::read_input() {
    std::array<char, 4096> text{};
    const ssize_t count = read(STDIN_FILENO, text.data(), text.size());
    if (count > 0) {
        buffer_.append(text.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        input_open_ = false;
    }
}

} // namespace csi_lab
