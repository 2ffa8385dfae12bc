/// What all UDP peers have in common: a socket, a thread, and faults.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <netinet/in.h>

#include "peers/journal.h"
#include "peers/sockets.h"
#include "peers/wrong_answers.h"

namespace peers {

/// How a peer misbehaves. The journal has every request all the same: the daemon did send it.
struct datagram_faults {
    bool silent = false;                // requests are read but neither handled nor answered
    double loss = 0;                    // share of the requests that never reach the peer, 0 to 1
    std::chrono::milliseconds delay{0}; // before each reply; later requests do not wait for it
    bool duplicate = false;             // each reply is sent twice
    wrong_answer wrong = wrong_answer::none;
};

/// Answers the datagrams that arrive at one address and port, on a thread of its own.
/// Everything but construction and destruction may be called from any thread, except from a
/// handler: handlers run on the peer's thread.
class datagram_peer {
public:
    struct identity {
        std::string name; // in the journal
        std::string address;
        std::uint16_t port;
        std::uint32_t seed;                   // decides which requests are lost
        std::chrono::milliseconds late{2500}; // a late answer: later than the daemon waits
    };
    /// Returns the reply to a request.
    using handler = std::function<std::string(const std::string& request)>;
    /// Returns all replies to a request, or nullopt to leave the request to the handler.
    using reply_override =
        std::function<std::optional<std::vector<std::string>>(const std::string& request)>;

    /// Starts. Throws std::runtime_error when the address cannot be bound.
    datagram_peer(journal& record, identity self, handler answer);
    ~datagram_peer();
    datagram_peer(const datagram_peer&) = delete;
    datagram_peer& operator=(const datagram_peer&) = delete;

    /// Closes the socket, so that the system refuses what is sent to it. Delayed replies are lost.
    void stop();
    /// Opens the socket again, unless it is open. Throws like the constructor.
    void start();
    [[nodiscard]] bool running() const { return running_; }

    void set_silent(bool silent) { set(&datagram_faults::silent, silent); }
    void set_loss(double share) { set(&datagram_faults::loss, share); }
    void set_delay(std::chrono::milliseconds delay) { set(&datagram_faults::delay, delay); }
    void set_duplicate(bool duplicate) { set(&datagram_faults::duplicate, duplicate); }
    void set_wrong(wrong_answer kind) { set(&datagram_faults::wrong, kind); }
    [[nodiscard]] datagram_faults faults() const;

    /// An empty function leaves all requests to the handler again.
    void answer_with(reply_override replies);

    [[nodiscard]] const std::string& name() const { return self_.name; }

private:
    struct pending_reply {
        sockaddr_in to;
        std::string text;
        bool twice;
    };

    template<class type>
    void set(type datagram_faults::*fault, type value) {
        const std::lock_guard<std::mutex> lock(mutex_);
        faults_.*fault = value;
    }
    void run();
    void receive();
    void record_timeout();
    void handle(const std::string& request, const sockaddr_in& from);
    [[nodiscard]] std::vector<std::string> replies_to(const std::string& request) const;
    [[nodiscard]] bool is_lost(double share);
    void send_due_replies();
    void send(pending_reply reply);
    [[nodiscard]] std::optional<std::chrono::milliseconds> time_to_next_reply() const;

    journal& journal_;
    const identity self_;
    const handler handler_;
    waker stop_;
    std::mutex start_stop_mutex_; // held by start and stop
    std::atomic<bool> running_{false};
    std::thread thread_;

    mutable std::mutex mutex_; // guards faults_ and override_
    datagram_faults faults_;
    reply_override override_;

    // Used by the thread, and by start and stop while the thread does not run.
    descriptor socket_;
    std::vector<char> buffer_;
    std::minstd_rand random_;
    std::multimap<std::chrono::steady_clock::time_point, pending_reply> pending_; // by due time
};

} // namespace peers
