/// The record of everything that the daemon and the lab's peers said to each other.
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

/// One message as it stood on the wire. The names of peers are "daemon", "server", "fusion",
/// "core " with an address, and "lab" for remarks of the lab itself.
struct message {
    std::chrono::system_clock::time_point when;
    std::string from;
    std::string to;
    std::string text;
};

/// Every function may be called from any thread. Predicates and the observer run under the
/// journal's lock, in the order of the messages: they must not call the journal.
class journal {
public:
    using predicate = std::function<bool(const std::vector<message>&)>;

    /// Keeps the latest messages, never more than `limit`: hours of soak must not fill the memory.
    explicit journal(std::size_t limit = 100'000);

    void record(std::string from, std::string to, std::string text);

    /// Called with each message from now on, on the thread of the peer that recorded it.
    void on_message(std::function<void(const message&)> observer);

    [[nodiscard]] std::vector<message> messages() const;
    [[nodiscard]] std::size_t size() const;

    /// The messages of one direction; an empty name stands for any peer.
    [[nodiscard]] std::vector<message> select(std::string_view from, std::string_view to) const;
    [[nodiscard]] std::size_t count(std::string_view from, std::string_view to) const;

    /// Waits until the predicate holds; it is asked at once and after each message. False when
    /// the bound has passed before.
    [[nodiscard]] bool wait_for(const predicate& holds, std::chrono::milliseconds bound) const;

    /// Forgets all messages.
    void clear();

private:
    const std::size_t limit_;
    mutable std::mutex mutex_;
    mutable std::condition_variable recorded_;
    std::vector<message> messages_;
    std::function<void(const message&)> observer_;
};

} // namespace peers
