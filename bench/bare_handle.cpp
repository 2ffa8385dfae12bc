#include "bench/bare_handle.h"

namespace csi_bench {
namespace {

std::size_t take(char* data, std::size_t size, std::size_t count, void* to) {
    static_cast<std::string*>(to)->assign(data, size * count);
    return size * count;
}

} // namespace

bare_handle::bare_handle(long port, const std::string& url)
    : handle_(curl_easy_init())
    , headers_(curl_slist_append(nullptr, "Content-Type: application/json")) {
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers_.get());
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &take);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &response_);
    curl_easy_setopt(handle, CURLOPT_PORT, port);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, 10240000L);
    set_url(url);
}

void bare_handle::set_url(const std::string& url) {
    curl_easy_setopt(handle_.get(), CURLOPT_URL, url.c_str());
}

const std::string& bare_handle::get() {
    curl_easy_setopt(handle_.get(), CURLOPT_HTTPGET, 1L);
    return perform(5000);
}

const std::string& bare_handle::post(const std::string& body) {
    curl_easy_setopt(handle_.get(), CURLOPT_POSTFIELDS, body.c_str());
    return perform(20000);
}

const std::string& bare_handle::perform(long timeout_ms) {
    response_.clear();
    curl_easy_setopt(handle_.get(), CURLOPT_TIMEOUT_MS, timeout_ms);
    curl_easy_perform(handle_.get());
    return response_;
}

} // namespace csi_bench
