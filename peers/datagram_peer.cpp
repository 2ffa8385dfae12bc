#include "peers/datagram_peer.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

#include <sys/socket.h>

namespace peers {
namespace {

using std::chrono::steady_clock;

constexpr std::size_t largest_datagram = 65507;
constexpr std::chrono::milliseconds no_delay(0);

} // namespace

datagram_peer::datagram_peer(journal& record, identity self, handler answer)
    : journal_(record)
    , self_(std::move(self))
    , handler_(std::move(answer))
    , buffer_(largest_datagram)
    , random_(self_.seed) {
    start();
}

datagram_peer::~datagram_peer() {
    stop();
}

void datagram_peer::start() {
    const std::lock_guard<std::mutex> lock(start_stop_mutex_);
    if (thread_.joinable()) {
        return;
    }
    socket_ = bind_udp(self_.address, self_.port);
    running_ = true;
    thread_ = std::thread([this] { run(); });
}

void datagram_peer::stop() {
    const std::lock_guard<std::mutex> lock(start_stop_mutex_);
    if (!thread_.joinable()) {
        return;
    }
    running_ = false;
    stop_.wake();
    thread_.join();
    stop_.reset();
    pending_.clear();
    socket_.reset();
}

datagram_faults datagram_peer::faults() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return faults_;
}

void datagram_peer::answer_with(reply_override replies) {
    const std::lock_guard<std::mutex> lock(mutex_);
    override_ = std::move(replies);
}

void datagram_peer::run() {
    while (running_) {
        if (wait_readable(socket_, stop_, time_to_next_reply())) {
            receive();
        }
        send_due_replies();
    }
}

void datagram_peer::receive() {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t count = recvfrom(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr*>(&from), &size);
    if (count >= 0) {
        handle(std::string(buffer_.data(), static_cast<std::size_t>(count)), from);
    }
}

void datagram_peer::handle(const std::string& request, const sockaddr_in& from) {
    const datagram_faults present = faults();
    journal_.record("daemon", self_.name, request);
    if (present.silent) {
        record_timeout();
        return;
    }
    if (is_lost(present.loss)) {
        journal_.record("lab", self_.name, "the request above was lost");
        record_timeout();
        return;
    }
    const bool late = present.wrong == wrong_answer::late;
    const auto due = steady_clock::now() + present.delay + (late ? self_.late : no_delay);
    const bool twice = present.duplicate || present.wrong == wrong_answer::twice;
    const std::vector<std::string> replies = replies_to(request);
    for (const std::string& text : replies) {
        pending_.emplace(due, pending_reply{from, spoil(present.wrong, request, text), twice});
    }
    if (replies.empty()) {
        record_timeout();
    }
}

void datagram_peer::record_timeout() {
    message what{};
    what.from = self_.name;
    what.to = "daemon";
    what.event = "timeout";
    journal_.record(std::move(what));
}

std::vector<std::string> datagram_peer::replies_to(const std::string& request) const {
    reply_override present;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        present = override_;
    }
    if (present) {
        if (auto replies = present(request)) {
            return *std::move(replies);
        }
    }
    return {handler_(request)};
}

bool datagram_peer::is_lost(double share) {
    return std::uniform_real_distribution<double>(0, 1)(random_) < share;
}

void datagram_peer::send_due_replies() {
    while (!pending_.empty() && pending_.begin()->first <= steady_clock::now()) {
        send(std::move(pending_.begin()->second));
        pending_.erase(pending_.begin());
    }
}

void datagram_peer::send(pending_reply reply) {
    const int copies = reply.twice ? 2 : 1;
    iovec text{reply.text.data(), reply.text.size()};
    std::array<mmsghdr, 2> datagrams{};
    for (int copy = 0; copy < copies; ++copy) {
        // Recorded before it is sent: whoever has the reply finds it in the journal.
        journal_.record(self_.name, "daemon", reply.text);
        msghdr& datagram = datagrams[static_cast<std::size_t>(copy)].msg_hdr;
        datagram.msg_name = &reply.to;
        datagram.msg_namelen = sizeof reply.to;
        datagram.msg_iov = &text;
        datagram.msg_iovlen = 1;
    }
    // At once: the daemon's next request may have the same port, and would take a second one that
    // comes late for its answer.
    const int sent =
        sendmmsg(socket_.get(), datagrams.data(), static_cast<unsigned>(copies), MSG_NOSIGNAL);
    if (sent < copies) {
        journal_.record("lab", self_.name,
                        "the reply above was not sent: " + std::generic_category().message(errno));
    }
}

std::optional<std::chrono::milliseconds> datagram_peer::time_to_next_reply() const {
    if (pending_.empty()) {
        return std::nullopt;
    }
    return std::chrono::ceil<std::chrono::milliseconds>(pending_.begin()->first -
                                                        steady_clock::now());
}

} // namespace peers
