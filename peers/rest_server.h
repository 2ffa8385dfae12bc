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
#include "peers/wrong_answers.h"

namespace peers {

struct rest_server_options {
    std::uint16_t port = 0;            // 0: the system chooses
    std::string api = "v2";            // or "v3"
    std::size_t threads = 16;          // each open connection occupies one
    std::size_t kept_requests = 10000; // the latest ones; the counters count all
};

/// How the server misbehaves.
struct rest_server_faults {
    bool silent = false;                // requests are read and not answered until this ends
    std::chrono::milliseconds delay{0}; // before each response
    bool cut = false;                   // the connection breaks in the middle of the body
    std::optional<int> status;          // of every response
    wrong_answer wrong = wrong_answer::none;
};

/// Listens on 127.0.0.1. May be called from any thread. The queue, the counters and the faults
/// survive a stop.
class rest_server {
public:
    using predicate = std::function<bool(const std::deque<http_request>&)>;

    /// Starts. Throws std::runtime_error when the port is in use.
    explicit rest_server(journal& record, rest_server_options options = {});
    ~rest_server();
    rest_server(const rest_server&) = delete;
    rest_server& operator=(const rest_server&) = delete;

    /// Breaks all connections, including those that wait for a response.
    void stop();
    /// Listens again, on the same port, unless it does already. Throws like the constructor.
    void start();
    [[nodiscard]] bool running() const { return running_; }
    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Queues a command, any text: each poll takes one.
    void queue(std::string command);
    [[nodiscard]] std::size_t queued() const;
    /// Whether all queued commands were fetched, and the latest was answered or has no reply.
    [[nodiscard]] bool all_answered() const;
    void set_attach_answer(std::string answer);

    [[nodiscard]] std::vector<http_request> requests() const;
    [[nodiscard]] std::size_t gets() const { return locked(gets_); }
    /// Includes the attaches.
    [[nodiscard]] std::size_t posts() const { return locked(posts_); }
    [[nodiscard]] std::size_t attaches() const { return locked(attaches_); }
    /// The id in the latest attach; empty before the first.
    [[nodiscard]] std::string attached_zorvin() const { return locked(attached_zorvin_); }

    /// Waits until the predicate holds for the kept requests. It is tested at once and after each
    /// request, under the server's lock: it must not call the server. False when the time is up.
    [[nodiscard]] bool wait_for(const predicate& holds, std::chrono::milliseconds timeout) const;

    void set_silent(bool silent) { set(&rest_server_faults::silent, silent); }
    void set_delay(std::chrono::milliseconds delay) { set(&rest_server_faults::delay, delay); }
    void set_cut(bool cut) { set(&rest_server_faults::cut, cut); }
    void set_status(std::optional<int> status) { set(&rest_server_faults::status, status); }
    void set_wrong(wrong_answer kind) { set(&rest_server_faults::wrong, kind); }
    [[nodiscard]] rest_server_faults faults() const { return locked(faults_); }

private:
    enum class route { none, attach, poll, post };

    /// A copy of a member that mutex_ guards.
    template<class type>
    [[nodiscard]] type locked(const type& member) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return member;
    }
    template<class type>
    void set(type rest_server_faults::*fault, type value) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            faults_.*fault = value;
        }
        changed_.notify_all();
    }
    std::optional<http_response> respond(http_request request, const connection& client);
    [[nodiscard]] route route_of(const http_request& request) const;
    void record(http_request request, const std::string& path, route where);
    [[nodiscard]] bool wait_out_faults(const connection& client);
    http_response make_response(route where, bool was_redirected, const std::string& path);
    std::string take_body(route where);

    journal& journal_;
    const rest_server_options options_;
    std::mutex start_stop_mutex_; // held by start and stop
    std::atomic<bool> running_{false};
    std::uint16_t port_;       // set once, by the first start
    mutable std::mutex mutex_; // guards the members up to attached_zorvin_
    mutable std::condition_variable recorded_;
    std::condition_variable changed_; // the faults or stopping_
    bool stopping_ = false;
    rest_server_faults faults_;
    std::string attach_answer_ = R"({"cmd":"associate"})";
    std::deque<std::string> commands_;
    bool answered_ = true; // the command that was fetched last
    std::deque<http_request> requests_;
    std::size_t gets_ = 0;
    std::size_t posts_ = 0;
    std::size_t attaches_ = 0;
    std::string attached_zorvin_;
    std::unique_ptr<http_listener> listener_; // last: its threads use all of the above
};

} // namespace peers
