/// The floor of an HTTP request: a libcurl handle with the daemon's options, and nothing else.
#pragma once

#include <memory>
#include <string>

#include <curl/curl.h>

namespace csi_bench {

/// What is the same for all requests is set only once.
class bare_handle {
public:
    bare_handle(long port, const std::string& url);

    void set_url(const std::string& url);
    /// Both return the body of the answer, empty when the request failed.
    const std::string& get();
    const std::string& post(const std::string& body);

private:
    struct handle_deleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    struct list_deleter {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    const std::string& perform(long timeout_ms);

    std::unique_ptr<CURL, handle_deleter> handle_;
    std::unique_ptr<curl_slist, list_deleter> headers_;
    std::string response_;
};

} // namespace csi_bench
