/// The one HTTP connection that carries all traffic to the REST server.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <curl/curl.h>

#include "platform/fair_mutex.h"

namespace curl_http {

/// How long a request may take.
struct timeouts {
    std::chrono::milliseconds post{20000};
    std::chrono::milliseconds get{5000};
    std::chrono::milliseconds sink{200000};
};

/// One libcurl handle and one response buffer, which all threads share: requests run one at a time,
/// in the order in which the threads came.
/// Errors are never returned: a failed request gives an empty or partial body and clears
/// connected(), and only the first failure of an outage is logged. The HTTP status is ignored. One
/// instance per process, constructed before any other thread starts.
class http_client {
public:
    /// Every request goes to `port`, whatever port its URL names.
    explicit http_client(std::uint32_t port, const timeouts& bounds = {});
    ~http_client();
    http_client(const http_client&) = delete;
    http_client& operator=(const http_client&) = delete;

    /// Asked before each request: once it returns true, only replies are sent. To be set before
    /// other threads send.
    void set_shutdown_test(std::function<bool()> test) { shutdown_test_ = std::move(test); }

    /// Sends the body as JSON and returns the body of the reply.
    std::string post_json(const std::string& url, const std::string& body);

    /// The same, but sends and returns nothing when the daemon is shutting down.
    std::optional<std::string> post_json_unless_shutting_down(const std::string& url,
                                                              const std::string& body);

    /// Returns the body that the URL has. Sends nothing, and returns an empty body, when the daemon
    /// is shutting down.
    std::string get(const std::string& url);

    /// Like get, but the body goes to `sink` through the write function that was set last: `sink`
    /// is a std::string after any other request of this object, a FILE before. Returns an empty
    /// text.
    std::string get_with_sink(const std::string& url, void* sink);

    /// Whether the last request succeeded. Any thread, at any time.
    [[nodiscard]] bool connected() const { return connected_; }

    void set_port(std::uint32_t port) { port_ = port; }
    [[nodiscard]] std::uint32_t port() const { return port_; }

    /// libcurl's write function: `user` is the std::string that takes the bytes.
    static std::size_t curl_callback(char* data, std::size_t size, std::size_t nmemb, void* user);

private:
    struct handle_deleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    // called with the mutex held
    [[nodiscard]] bool ensure_handle();
    void post(const std::string& url, const std::string& body);
    void receive_into_response(std::chrono::milliseconds timeout);
    void perform(const std::string& url);
    [[nodiscard]] bool shutting_down() const { return shutdown_test_ && shutdown_test_(); }

    std::string response_;
    std::uint32_t port_;
    const timeouts timeouts_;
    std::atomic<bool> connected_{false};
    std::unique_ptr<CURL, handle_deleter> handle_;
    threading::fair_mutex mutex_; // guards response_ and handle_, for the whole of a request
    std::function<bool()> shutdown_test_;
};

} // namespace curl_http
