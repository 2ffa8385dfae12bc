/// HTTP requests and responses as a server sees them: read from a connection, written to text.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace peers {

class connection;

struct http_request {
    std::chrono::steady_clock::time_point when;
    std::string method;
    std::string path; // as in the request line
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body{};
    std::uint16_t remote_port = 0; // distinguishes connections
    bool keep_alive = true;        // whether the client wants to send more on this connection

    /// The value of the header, whose name may be in any case; empty when it is missing.
    [[nodiscard]] std::string header(std::string_view name) const;
};

struct http_response {
    int status = 200;
    std::string body{};
    bool cut = false; // only half of the body is sent, then the connection is closed
    std::string content_type = "application/json";              // of a body that is not empty
    std::string location{};                                     // of a redirect
    std::vector<std::pair<std::string, std::string>> headers{}; // more of them
};

enum class read_result { complete, malformed, closed };

/// Reads one request, and asks the client for the body if it waits to be asked. "closed" when the
/// client closed the connection or stopped sending.
[[nodiscard]] read_result read_request(connection& from, http_request& to);

/// The whole response, or what is to be sent of it if it is cut.
[[nodiscard]] std::string format_response(const http_response& what, bool keep_alive);

} // namespace peers
