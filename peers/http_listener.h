/// The mechanics of an HTTP/1.1 server: persistent connections, requests in, responses out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "peers/http_message.h"
#include "peers/sockets.h"

namespace peers {

class connection;

/// Listens from construction to destruction. Destruction breaks all connections at once but waits
/// for running handlers, which its owner must make return.
class http_listener {
public:
    /// Runs on the listener's threads, several at a time. Without a response the connection is
    /// closed.
    using handler = std::function<std::optional<http_response>(http_request, const connection&)>;

    /// Port 0 lets the system choose. Each open connection occupies one of the threads. Throws
    /// std::runtime_error when the port is in use.
    http_listener(std::uint16_t port, std::size_t threads, handler respond,
                  const std::string& address = "127.0.0.1");
    ~http_listener();
    http_listener(const http_listener&) = delete;
    http_listener& operator=(const http_listener&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }

private:
    void run();
    void accept_and_serve();
    [[nodiscard]] bool serve_request(connection& client) const;

    waker stop_; // woken once: every wait on it ends from then on
    const handler respond_;
    const descriptor socket_;
    const std::uint16_t port_;
    std::mutex accept_mutex_; // held by the one idle thread that waits for the next connection
    std::vector<std::thread> threads_;
};

} // namespace peers
