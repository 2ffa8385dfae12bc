/// The one HTTP connection that carries all traffic to the REST server.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <curl/curl.h>

namespace curl_http {

/// One libcurl handle and one response buffer, for all threads: a request waits until the one
/// before it has ended. Errors are never returned: a failed request gives an empty or partial body
/// and clears connected(), and only the first failure of an outage is logged. The HTTP status is
/// not looked at. One instance a process, made before any other thread.
class http_client {
public:
    /// `port` goes with every request, whatever port its URL names.
    explicit http_client(std::uint32_t port);
    ~http_client();
    http_client(const http_client&) = delete;
    http_client& operator=(const http_client&) = delete;

    /// Asked when a request's turn has come: once it gives true, requests that are no replies are
    /// left out. To be set before other threads send.
    void set_ending_test(std::function<bool()> test) { ending_test_ = std::move(test); }

    /// Sends the body as JSON and returns the body of the reply. Waits at most 20 s for it.
    std::string post_json(const std::string& url, const std::string& body);

    /// The same, or nothing when the request was left out because the process is about to end.
    std::optional<std::string> post_json_unless_ending(const std::string& url,
                                                       const std::string& body);

    /// Returns the body that is found at the URL. Waits at most 5 s for it. Left out, and empty,
    /// when the process is about to end.
    std::string get(const std::string& url);

    /// Like get, but what is received goes to `sink` through the write function last set: a
    /// std::string after any other request of this object, a FILE before. Waits at most 200 s;
    /// the result is empty.
    std::string get_with_sink(const std::string& url, void* sink);

    /// Whether the last request ended well. Any thread, at any time.
    [[nodiscard]] bool connected() const { return connected_; }

    void set_port(std::uint32_t port) { port_ = port; }
    [[nodiscard]] std::uint32_t port() const { return port_; }

    /// libcurl's write function: `user` is the std::string that takes the bytes.
    static std::size_t curl_callback(char* data, std::size_t size, std::size_t nmemb, void* user);

private:
    struct handle_deleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    // with the mutex held
    void post(const std::string& url, const std::string& body);
    void receive_into_response(long timeout_ms);
    void perform(const std::string& url);
    [[nodiscard]] bool is_ending() const { return ending_test_ && ending_test_(); }

    std::string response_;
    std::uint32_t port_;
    std::atomic<bool> connected_{false};
    std::unique_ptr<CURL, handle_deleter> handle_;
    std::mutex mutex_; // guards response_ and handle_, for the whole of a request
    std::function<bool()> ending_test_;
};

} // namespace curl_http
