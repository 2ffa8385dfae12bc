#include "http/http_client.h"

#include <mutex>
#include <new>
#include <utility>

#include <fcntl.h>

#include "daemon/log.h"

namespace curl_http {
namespace {

constexpr long receive_buffer_size = 10240000;

/// A new list for every POST, never released: libcurl uses the last one for later requests, too.
/// Kept for compatibility.
curl_slist* make_json_headers() {
    curl_slist* const headers = curl_slist_append(nullptr, "Content-Type: application/json");
    if (headers == nullptr) {
        throw std::bad_alloc();
    }
    return headers;
}

long to_long(std::chrono::milliseconds time) {
    return static_cast<long>(time.count());
}

int close_on_exec(void* /*unused*/, curl_socket_t fd, curlsocktype /*purpose*/) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    return CURL_SOCKOPT_OK;
}

/// No proxy from the environment. A libcurl that was built without proxies does not know the
/// option.
bool ignore_proxies(CURL* handle) {
    const CURLcode result = curl_easy_setopt(handle, CURLOPT_PROXY, "");
    return result == CURLE_OK || result == CURLE_UNKNOWN_OPTION;
}

/// To HTTP only, whatever else the library speaks, and not in circles.
void limit_redirects(CURL* handle) {
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 10L);
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
#else
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS, long{CURLPROTO_HTTP | CURLPROTO_HTTPS});
#endif
}

/// A request that has timed out must not wait until silent name servers have timed out, too. The
/// resolver's thread ends by itself.
void leave_resolver_behind(CURL* handle) {
#if LIBCURL_VERSION_NUM >= 0x075700
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
#else
    static_cast<void>(handle);
#endif
}

} // namespace

http_client::http_client(std::uint32_t port, const timeouts& bounds)
    : port_(port)
    , timeouts_(bounds) {
    curl_global_init(CURL_GLOBAL_ALL);
    static_cast<void>(ensure_handle());
}

http_client::~http_client() {
    handle_.reset();
    curl_global_cleanup();
}

/// Without memory for a handle a request fails, and the next one tries again.
bool http_client::ensure_handle() {
    if (handle_) {
        return true;
    }
    std::unique_ptr<CURL, handle_deleter> handle(curl_easy_init());
    if (!handle || !ignore_proxies(handle.get())) {
        return false;
    }
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L); // the daemon's signals are its own
    curl_easy_setopt(handle.get(), CURLOPT_SOCKOPTFUNCTION, &close_on_exec);
    limit_redirects(handle.get());
    leave_resolver_behind(handle.get());
    handle_ = std::move(handle);
    return true;
}

std::string http_client::post_json(const std::string& url, const std::string& body) {
    const std::lock_guard<threading::fair_mutex> lock(mutex_);
    post(url, body);
    return response_;
}

std::optional<std::string> http_client::post_json_unless_shutting_down(const std::string& url,
                                                                       const std::string& body) {
    const std::lock_guard<threading::fair_mutex> lock(mutex_);
    if (shutting_down()) {
        return std::nullopt;
    }
    post(url, body);
    return response_;
}

void http_client::post(const std::string& url, const std::string& body) {
    response_.clear();
    if (ensure_handle()) {
        curl_easy_setopt(handle_.get(), CURLOPT_HTTPHEADER, make_json_headers());
        curl_easy_setopt(handle_.get(), CURLOPT_POSTFIELDS, body.c_str());
        receive_into_response(timeouts_.post);
        perform(url);
    }
}

std::string http_client::get(const std::string& url) {
    const std::lock_guard<threading::fair_mutex> lock(mutex_);
    response_.clear();
    if (!shutting_down() && ensure_handle()) {
        curl_easy_setopt(handle_.get(), CURLOPT_HTTPGET, 1L);
        receive_into_response(timeouts_.get);
        perform(url);
    }
    return response_;
}

std::string http_client::get_with_sink(const std::string& url, void* sink) {
    const std::lock_guard<threading::fair_mutex> lock(mutex_);
    response_.clear();
    if (ensure_handle()) {
        curl_easy_setopt(handle_.get(), CURLOPT_HTTPGET, 1L);
        curl_easy_setopt(handle_.get(), CURLOPT_WRITEDATA, sink);
        curl_easy_setopt(handle_.get(), CURLOPT_TIMEOUT_MS, to_long(timeouts_.sink));
        perform(url);
    }
    return response_;
}

void http_client::receive_into_response(std::chrono::milliseconds timeout) {
    curl_easy_setopt(handle_.get(), CURLOPT_TIMEOUT_MS, to_long(timeout));
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEFUNCTION, &http_client::curl_callback);
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEDATA, &response_);
}

void http_client::perform(const std::string& url) {
    if (url.empty()) {
        return;
    }
    // Copied: when that fails, the handle still has the last request's.
    const CURLcode copied = curl_easy_setopt(handle_.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle_.get(), CURLOPT_PORT, static_cast<long>(port_));
    curl_easy_setopt(handle_.get(), CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle_.get(), CURLOPT_BUFFERSIZE, receive_buffer_size);
    const CURLcode result = copied == CURLE_OK ? curl_easy_perform(handle_.get()) : copied;
    if (result == CURLE_OK) {
        connected_ = true;
        return;
    }
    if (connected_) {
        csi_receiver::log_prefix()
            << "request to " << url << " failed: " << curl_easy_strerror(result);
        connected_ = false;
    }
}

std::size_t http_client::curl_callback(char* data, std::size_t size, std::size_t nmemb,
                                       void* user) {
    const std::size_t length = size * nmemb;
    if (data != nullptr) {
        // Each chunk replaces the one before, and the large receive buffer makes a reply arrive as
        // one chunk, as long as it is below libcurl's own limit of 16 KiB: kept for compatibility.
        try {
            static_cast<std::string*>(user)->assign(data, length);
        } catch (const std::bad_alloc&) {
            return 0; // not through the library's frames: the request fails
        }
    }
    return length;
}

} // namespace curl_http
