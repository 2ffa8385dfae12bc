/// The mechanics of an HTTP server: persistent connections, requests in, responses out.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace peers {

class connection;

struct http_request {
    std::chrono::steady_clock::time_point when;
    std::string method;
    std::string path; // as in the request line
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::uint16_t remote_port; // distinguishes connections

    /// The value of the header, whose name may be in any case; empty when it is missing.
    [[nodiscard]] std::string header(const std::string& name) const;
};

struct http_response {
    int status = 200;
    std::string body;
    bool cut = false; // only half of the body is sent, then the connection is closed
};

/// Listens from construction to destruction. Destruction breaks all connections at once but waits
/// for running handlers, which its owner must make return.
class http_listener {
public:
    /// Runs on the listener's threads, several at a time. Without a response the connection is
    /// closed.
    using handler = std::function<std::optional<http_response>(http_request, const connection&)>;

    /// Listens on 127.0.0.1; port 0 lets the system choose. Each open connection occupies one of
    /// the threads. Throws std::runtime_error when the port is in use.
    http_listener(std::uint16_t port, std::size_t threads, handler respond);
    ~http_listener();
    http_listener(const http_listener&) = delete;
    http_listener& operator=(const http_listener&) = delete;

    [[nodiscard]] std::uint16_t port() const;

private:
    class impl;
    std::unique_ptr<impl> impl_;
};

} // namespace peers
