#include "http/http_client.h"

#include <fcntl.h>

#include "daemon/log.h"

namespace curl_http {
namespace {

constexpr long post_timeout_ms = 20000;
constexpr long get_timeout_ms = 5000;
constexpr long sink_timeout_ms = 200000;
constexpr long receive_buffer_size = 10240000;

/// A new list for every request, released by nobody: libcurl goes on using the one it was given
/// last for every later request, and servers expect the content type with GETs that follow a POST.
curl_slist* make_json_headers() {
    return curl_slist_append(nullptr, "Content-Type: application/json");
}

int close_on_exec(void* /*unused*/, curl_socket_t fd, curlsocktype /*purpose*/) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    return CURL_SOCKOPT_OK;
}

} // namespace

http_client::http_client(std::uint32_t port)
    : port_(port) {
    curl_global_init(CURL_GLOBAL_ALL);
    handle_.reset(curl_easy_init());
    if (handle_) {
        // Nothing comes from the environment, and signals are this process's own business.
        curl_easy_setopt(handle_.get(), CURLOPT_PROXY, "");
        curl_easy_setopt(handle_.get(), CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(handle_.get(), CURLOPT_SOCKOPTFUNCTION, &close_on_exec);
    }
}

http_client::~http_client() {
    handle_.reset();
    curl_global_cleanup();
}

std::string http_client::post_json(const std::string& url, const std::string& body) {
    const std::lock_guard<std::mutex> lock(mutex_);
    post(url, body);
    return response_;
}

std::optional<std::string> http_client::post_json_unless_ending(const std::string& url,
                                                                const std::string& body) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (is_ending()) {
        return std::nullopt;
    }
    post(url, body);
    return response_;
}

void http_client::post(const std::string& url, const std::string& body) {
    response_.clear();
    if (handle_) {
        curl_easy_setopt(handle_.get(), CURLOPT_HTTPHEADER, make_json_headers());
        curl_easy_setopt(handle_.get(), CURLOPT_POSTFIELDS, body.c_str());
        receive_into_response(post_timeout_ms);
        perform(url);
    }
}

std::string http_client::get(const std::string& url) {
    const std::lock_guard<std::mutex> lock(mutex_);
    response_.clear();
    if (handle_ && !is_ending()) {
        curl_easy_setopt(handle_.get(), CURLOPT_HTTPGET, 1L);
        receive_into_response(get_timeout_ms);
        perform(url);
    }
    return response_;
}

std::string http_client::get_with_sink(const std::string& url, void* sink) {
    const std::lock_guard<std::mutex> lock(mutex_);
    response_.clear();
    if (handle_) {
        curl_easy_setopt(handle_.get(), CURLOPT_HTTPGET, 1L);
        curl_easy_setopt(handle_.get(), CURLOPT_WRITEDATA, sink);
        curl_easy_setopt(handle_.get(), CURLOPT_TIMEOUT_MS, sink_timeout_ms);
        perform(url);
    }
    return response_;
}

void http_client::receive_into_response(long timeout_ms) {
    curl_easy_setopt(handle_.get(), CURLOPT_TIMEOUT_MS, timeout_ms);
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEFUNCTION, &http_client::curl_callback);
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEDATA, &response_);
}

void http_client::perform(const std::string& url) {
    if (url.empty()) {
        return;
    }
    curl_easy_setopt(handle_.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle_.get(), CURLOPT_PORT, static_cast<long>(port_));
    curl_easy_setopt(handle_.get(), CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle_.get(), CURLOPT_BUFFERSIZE, receive_buffer_size);
    const CURLcode result = curl_easy_perform(handle_.get());
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
        // Each chunk replaces the one before it; the receive buffer is as large as it is so that a
        // whole reply comes as one chunk. libcurl itself makes chunks of 16 KiB at most: servers
        // keep their messages below that.
        static_cast<std::string*>(user)->assign(data, length);
    }
    return length;
}

} // namespace curl_http
