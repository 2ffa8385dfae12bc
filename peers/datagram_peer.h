/// What all of the lab's UDP peers have in common: a socket, a thread, faults.
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

#include "peers/journal.h"
#include "peers/sockets.h"

namespace peers {

/// How a peer misbehaves. A silent peer reads requests and does nothing; a lost request is one
/// that the peer never saw. Both are in the journal all the same: the daemon did send them.
struct datagram_faults {
    bool silent = false;
    double loss = 0;                    ///< Share of the requests that are lost, 0 to 1.
    std::chrono::milliseconds delay{0}; ///< Before each reply; later requests do not wait for it.
    bool duplicate = false;             ///< Each reply goes out twice.
};

/// Answers the datagrams that arrive at one address and port, on a thread of its own.
/// Everything but construction and destruction may be called from any thread, but not from a
/// handler, which runs on the peer's thread.
class datagram_peer {
public:
    struct identity {
        std::string name; ///< In the journal.
        std::string address;
        std::uint16_t port;
        std::uint32_t seed; ///< Of the dice for losses.
    };
    /// Gives the replies to a request: none, one or several.
    using handler = std::function<std::vector<std::string>(const std::string& request)>;
    /// Gives the replies as they shall stand on the wire, or leaves the request to the handler.
    using substitute =
        std::function<std::optional<std::vector<std::string>>(const std::string& request)>;

    /// Starts. Throws std::runtime_error when the address cannot be bound.
    datagram_peer(journal& record, identity self, handler answer);
    ~datagram_peer();
    datagram_peer(const datagram_peer&) = delete;
    datagram_peer& operator=(const datagram_peer&) = delete;

    /// Closes the socket, so that the system refuses what is sent to it. Held replies are lost.
    void stop();
    /// Opens it again; nothing when it is open. Throws as the constructor.
    void start();
    [[nodiscard]] bool running() const { return running_; }

    void set_silent(bool silent) { set(&datagram_faults::silent, silent); }
    void set_loss(double share) { set(&datagram_faults::loss, share); }
    void set_delay(std::chrono::milliseconds delay) { set(&datagram_faults::delay, delay); }
    void set_duplicate(bool duplicate) { set(&datagram_faults::duplicate, duplicate); }
    [[nodiscard]] datagram_faults faults() const;

    /// An empty function takes the substitute away.
    void answer_with(substitute replies);

    [[nodiscard]] const std::string& name() const { return self_.name; }
    [[nodiscard]] const std::string& address() const { return self_.address; }

private:
    struct held_reply {
        sockaddr_in to;
        std::string text;
    };

    template<typename member>
    void set(member datagram_faults::*which, member to) {
        const std::lock_guard<std::mutex> lock(mutex_);
        faults_.*which = to;
    }
    void run();
    void receive();
    void take(const std::string& request, const sockaddr_in& from);
    [[nodiscard]] std::vector<std::string> replies_to(const std::string& request) const;
    [[nodiscard]] bool lost(double share);
    void send_due();
    void send(const held_reply& reply);
    [[nodiscard]] std::optional<std::chrono::milliseconds> until_due() const;

    journal& journal_;
    const identity self_;
    const handler handler_;
    waker stop_;
    std::mutex life_; ///< Held by start and stop.
    std::atomic<bool> running_{false};
    std::thread thread_;
    mutable std::mutex mutex_; ///< For the two below.
    datagram_faults faults_;
    substitute substitute_;
    // The thread's own, or of start and stop while there is none.
    descriptor socket_;
    std::vector<char> buffer_;
    std::minstd_rand dice_;
    std::multimap<std::chrono::steady_clock::time_point, held_reply> held_;
};

} // namespace peers
