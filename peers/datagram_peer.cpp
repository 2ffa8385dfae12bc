#include "peers/datagram_peer.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/socket.h>

namespace peers {
namespace {

using std::chrono::steady_clock;

constexpr std::size_t largest_datagram = 65507;

} // namespace

datagram_peer::datagram_peer(journal& record, identity self, handler answer)
    : journal_(record)
    , self_(std::move(self))
    , handler_(std::move(answer))
    , buffer_(largest_datagram)
    , dice_(self_.seed) {
    start();
}

datagram_peer::~datagram_peer() {
    stop();
}

void datagram_peer::start() {
    const std::lock_guard<std::mutex> lock(life_);
    if (thread_.joinable()) {
        return;
    }
    socket_ = bind_datagrams(self_.address, self_.port);
    running_ = true;
    thread_ = std::thread([this] { run(); });
}

void datagram_peer::stop() {
    const std::lock_guard<std::mutex> lock(life_);
    if (!thread_.joinable()) {
        return;
    }
    running_ = false;
    stop_.wake();
    thread_.join();
    stop_.reset();
    held_.clear();
    socket_ = descriptor();
}

datagram_faults datagram_peer::faults() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return faults_;
}

void datagram_peer::answer_with(substitute replies) {
    const std::lock_guard<std::mutex> lock(mutex_);
    substitute_ = std::move(replies);
}

void datagram_peer::run() {
    while (running_) {
        if (wait_readable(socket_, stop_, until_due())) {
            receive();
        }
        send_due();
    }
}

void datagram_peer::receive() {
    sockaddr_in from = {};
    socklen_t size = sizeof from;
    const ssize_t count = recvfrom(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr*>(&from), &size);
    if (count >= 0) {
        take(std::string(buffer_.data(), static_cast<std::size_t>(count)), from);
    }
}

void datagram_peer::take(const std::string& request, const sockaddr_in& from) {
    const datagram_faults now = faults();
    journal_.record("daemon", self_.name, request);
    if (now.silent) {
        return;
    }
    if (lost(now.loss)) {
        journal_.record("lab", self_.name, "the request above is lost");
        return;
    }
    const auto due = steady_clock::now() + now.delay;
    for (const std::string& text : replies_to(request)) {
        for (int copy = now.duplicate ? 2 : 1; copy > 0; --copy) {
            held_.emplace(due, held_reply{from, text});
        }
    }
}

std::vector<std::string> datagram_peer::replies_to(const std::string& request) const {
    substitute instead;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        instead = substitute_;
    }
    if (instead) {
        if (auto replies = instead(request)) {
            return *std::move(replies);
        }
    }
    return handler_(request);
}

bool datagram_peer::lost(double share) {
    return std::uniform_real_distribution<double>(0, 1)(dice_) < share;
}

void datagram_peer::send_due() {
    while (!held_.empty() && held_.begin()->first <= steady_clock::now()) {
        send(held_.begin()->second);
        held_.erase(held_.begin());
    }
}

void datagram_peer::send(const held_reply& reply) {
    // Before it leaves: who has the reply may rely on the journal.
    journal_.record(self_.name, "daemon", reply.text);
    const ssize_t sent = sendto(socket_.get(), reply.text.data(), reply.text.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&reply.to), sizeof reply.to);
    if (sent < 0) {
        journal_.record("lab", self_.name,
                        "the reply above was not sent: " + std::generic_category().message(errno));
    }
}

std::optional<std::chrono::milliseconds> datagram_peer::until_due() const {
    if (held_.empty()) {
        return std::nullopt;
    }
    return std::chrono::ceil<std::chrono::milliseconds>(held_.begin()->first - steady_clock::now());
}

} // namespace peers
