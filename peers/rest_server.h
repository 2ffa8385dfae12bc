/// Plays the REST server: takes attaches and messages, hands out queued commands.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "peers/http_listener.h"
#include "peers/journal.h"

namespace peers {

struct rest_server_options {
    std::uint16_t port = 0; ///< 0: the system chooses.
    std::string api = "v2"; ///< Or "v3".
    std::string attach_answer = R"({"cmd":"associate"})";
    std::size_t threads = 16;          ///< Each open connection holds one.
    std::size_t kept_requests = 10000; ///< The latest; the counters count all.
};

/// How the server misbehaves.
struct rest_server_faults {
    bool silent = false;                ///< Requests are read and not answered until this ends.
    std::chrono::milliseconds delay{0}; ///< Before each answer.
    bool cut = false;                   ///< The connection breaks in mid-body.
    std::optional<int> status;          ///< Of every answer.
};

/// Listens on 127.0.0.1. May be called from any thread. The queue, the counters and the faults
/// outlive a stop.
class rest_server {
public:
    using predicate = std::function<bool(const std::deque<http_request>&)>;

    /// Starts. Throws std::runtime_error when the port is in use.
    explicit rest_server(journal& record, rest_server_options options = {});
    ~rest_server();
    rest_server(const rest_server&) = delete;
    rest_server& operator=(const rest_server&) = delete;

    /// Breaks all connections, also those held in silence.
    void stop();
    /// Listens again, on the same port as before; nothing when it does. Throws as the constructor.
    void start();
    [[nodiscard]] bool running() const { return running_; }
    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// The text is handed out as it stands, one a poll.
    void queue(std::string command);
    [[nodiscard]] std::size_t queued() const;
    void set_attach_answer(std::string answer);

    [[nodiscard]] std::vector<http_request> requests() const;
    [[nodiscard]] std::size_t gets() const { return locked(gets_); }
    [[nodiscard]] std::size_t posts() const { return locked(posts_); } ///< With the attaches.
    [[nodiscard]] std::size_t attaches() const { return locked(attaches_); }
    /// Of the latest attach; empty before it.
    [[nodiscard]] std::string attached_zorvin() const { return locked(attached_zorvin_); }

    /// Waits until the predicate holds for the kept requests; it is asked at once and after each
    /// request, under the server's lock: it must not call the server. False at the bound.
    [[nodiscard]] bool wait_for(const predicate& holds, std::chrono::milliseconds bound) const;

    void set_silent(bool silent);
    void set_delay(std::chrono::milliseconds delay);
    void set_cut(bool cut);
    void set_status(std::optional<int> status);
    [[nodiscard]] rest_server_faults faults() const { return locked(faults_); }

private:
    enum class route { none, attach, poll, post };

    /// A copy of a member that the mutex guards.
    template<typename member>
    [[nodiscard]] member locked(const member& from) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return from;
    }
    std::optional<http_answer> answer(http_request request, const connection& from);
    [[nodiscard]] route route_of(const http_request& request) const;
    void note(http_request request, route where);
    [[nodiscard]] bool hold(const connection& from);
    http_answer compose(route where);
    std::string body_for(route where);
    void change_faults(const std::function<void(rest_server_faults&)>& change);

    journal& journal_;
    const rest_server_options options_;
    std::mutex life_; ///< Held by start and stop.
    std::atomic<bool> running_{false};
    std::uint16_t port_;       ///< Set once, by the first start.
    mutable std::mutex mutex_; ///< For all that follows but the listener.
    mutable std::condition_variable noted_;
    std::condition_variable released_;
    bool stopping_ = false;
    rest_server_faults faults_;
    std::string attach_answer_;
    std::deque<std::string> commands_;
    std::deque<http_request> requests_;
    std::size_t gets_ = 0;
    std::size_t posts_ = 0;
    std::size_t attaches_ = 0;
    std::string attached_zorvin_;
    std::unique_ptr<http_listener> listener_; ///< Last: its threads use all of the above.
};

} // namespace peers
