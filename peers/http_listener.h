/// The mechanics of an HTTP server: connections kept alive, requests in, answers out.
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

#include "peers/connection.h"

namespace peers {

struct http_request {
    std::chrono::steady_clock::time_point when;
    std::string method;
    std::string path; ///< As in the request line.
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::uint16_t remote_port; ///< Tells connections apart.

    /// The header's value; empty when there is none. Case does not matter.
    [[nodiscard]] std::string header(const std::string& name) const;
};

struct http_answer {
    int status = 200;
    std::string body;
    bool cut = false; ///< Only half of the body is sent, then the connection is closed.
};

/// Listens from construction to destruction, which breaks all connections at once but waits for
/// handlers: its owner releases them first.
class http_listener {
public:
    /// Runs on one of the listener's threads, several at a time. Without an answer the
    /// connection is closed.
    using handler = std::function<std::optional<http_answer>(http_request, const connection&)>;

    /// Listens on 127.0.0.1; port 0 lets the system choose. A connection holds one of the
    /// threads as long as it lasts. Throws std::runtime_error when the port is in use.
    http_listener(std::uint16_t port, std::size_t threads, handler answer);
    ~http_listener();
    http_listener(const http_listener&) = delete;
    http_listener& operator=(const http_listener&) = delete;

    [[nodiscard]] std::uint16_t port() const;

private:
    class impl;
    std::unique_ptr<impl> impl_;
};

} // namespace peers
