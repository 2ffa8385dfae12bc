/// The record of everything that the daemon and its peers said to each other.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace peers {

/// One message as it was on the wire. The names are "daemon", "server", "fusion", "core " with an
/// address, and "lab" for remarks about what a fault did.
struct message {
    std::chrono::system_clock::time_point when;
    std::string from;
    std::string to;
    std::string text;
    std::string method{}; // of the HTTP request that this is, or that this answers
    std::string path{};   // of the same request
    int status = 0;       // of an HTTP response
    std::string event{};  // "timeout" instead of an answer, "cut" for one that broke off
};

struct http_request;

/// The daemon's HTTP request as a message.
[[nodiscard]] message message_of(const http_request& request);

/// Any thread may call any function. Predicates and the observer run under the journal's lock, in
/// the order of the messages: they must not call the journal.
class journal {
public:
    using predicate = std::function<bool(const std::vector<message>&)>;

    /// Keeps the latest messages, at most `limit`, so that hours of soak do not exhaust the memory.
    explicit journal(std::size_t limit = 100'000);

    void record(std::string from, std::string to, std::string text);
    /// Sets the time. Only observers of all traffic get HTTP messages without a body, of which
    /// there are many, and events.
    void record(message what);

    /// The observer gets every message from now on, on the thread of the peer that recorded it.
    void on_message(std::function<void(const message&)> observer);
    /// This observer gets HTTP messages without a body and events, too, and gets them first.
    void on_traffic(std::function<void(const message&)> observer);

    [[nodiscard]] std::vector<message> messages() const;
    [[nodiscard]] std::size_t size() const;

    /// The messages that went this way; an empty name matches all names.
    [[nodiscard]] std::vector<message> select(std::string_view from, std::string_view to) const;
    [[nodiscard]] std::size_t count(std::string_view from, std::string_view to) const;

    /// Waits until the predicate holds, which is tested at once and after each message. False when
    /// the time is up.
    [[nodiscard]] bool wait_for(const predicate& holds, std::chrono::milliseconds timeout) const;

    /// Forgets all messages.
    void clear();

private:
    void keep(message&& what);

    const std::size_t limit_;
    mutable std::mutex mutex_; // guards the messages and the observers
    mutable std::condition_variable recorded_;
    std::vector<message> messages_;
    std::function<void(const message&)> observer_;
    std::function<void(const message&)> traffic_observer_;
};

} // namespace peers
