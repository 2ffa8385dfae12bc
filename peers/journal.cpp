#include "peers/journal.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "peers/http_message.h"

namespace peers {
namespace {

bool went(const message& what, std::string_view from, std::string_view to) {
    return (from.empty() || what.from == from) && (to.empty() || what.to == to);
}

} // namespace

message message_of(const http_request& request) {
    message result{};
    result.from = "daemon";
    result.to = "server";
    result.text = request.body;
    result.method = request.method;
    result.path = request.path;
    return result;
}

journal::journal(std::size_t limit)
    : limit_(std::max<std::size_t>(limit, 1)) {}

void journal::record(std::string from, std::string to, std::string text) {
    message what{};
    what.from = std::move(from);
    what.to = std::move(to);
    what.text = std::move(text);
    record(std::move(what));
}

void journal::record(message what) {
    what.when = std::chrono::system_clock::now();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (traffic_observer_) {
            traffic_observer_(what);
        }
        // An empty datagram counts, an empty HTTP body does not.
        if (what.text.empty() && (!what.method.empty() || !what.event.empty())) {
            return;
        }
        keep(std::move(what));
        if (observer_) {
            observer_(messages_.back());
        }
    }
    recorded_.notify_all();
}

void journal::keep(message&& what) {
    if (messages_.size() >= limit_) {
        // A tenth at a time: moving the others then costs little per message.
        const auto oldest = static_cast<std::ptrdiff_t>(limit_ / 10 + 1);
        messages_.erase(messages_.begin(), std::next(messages_.begin(), oldest));
    }
    messages_.push_back(std::move(what));
}

void journal::on_message(std::function<void(const message&)> observer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    observer_ = std::move(observer);
}

void journal::on_traffic(std::function<void(const message&)> observer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    traffic_observer_ = std::move(observer);
}

std::vector<message> journal::messages() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return messages_;
}

std::size_t journal::size() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return messages_.size();
}

std::vector<message> journal::select(std::string_view from, std::string_view to) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<message> result;
    std::copy_if(messages_.begin(), messages_.end(), std::back_inserter(result),
                 [&](const message& what) { return went(what, from, to); });
    return result;
}

std::size_t journal::count(std::string_view from, std::string_view to) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(messages_.begin(), messages_.end(),
                      [&](const message& what) { return went(what, from, to); }));
}

bool journal::wait_for(const predicate& holds, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return recorded_.wait_for(lock, timeout, [&] { return holds(messages_); });
}

void journal::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    messages_.clear();
}

} // namespace peers
