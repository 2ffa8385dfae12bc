/// Serves the page, to nobody but the browser of the person at this machine.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "peers/http_listener.h"

namespace csi_lab {

struct page_address {
    std::string address = "127.0.0.1";
    std::uint16_t port = 8088;
};

/// Reads [ADDRESS:]PORT, or nothing for the default. Throws std::runtime_error that says what is
/// wrong with it.
[[nodiscard]] page_address parse_page_address(const std::string& text);

/// The status with which to refuse the request; nullopt for a request of the page itself, or of a
/// person who opens it. Other web pages must neither read nor send anything, also not with a host
/// name of theirs that leads here.
[[nodiscard]] std::optional<int> refusal(const peers::http_request& request,
                                         const page_address& at);

/// Serves from construction to destruction. The functions run on threads of the server, several at
/// a time, and must return when the server is destroyed.
class page_server {
public:
    /// What a page has.
    struct position {
        std::uint64_t item;    // all before this number
        std::uint64_t version; // of the state; 0: none
    };
    struct source {
        std::string facts;                               // JSON, for the page's start
        std::function<std::string(position)> read;       // what it has not, as JSON
        std::function<std::string(std::string)> execute; // a typed line; empty: none are taken
    };

    /// Throws std::runtime_error when the address cannot be bound.
    page_server(page_address at, source from);

    [[nodiscard]] std::string url() const;
    /// Where the page is, for people.
    [[nodiscard]] std::string place() const;

private:
    [[nodiscard]] peers::http_response respond(const peers::http_request& request) const;
    [[nodiscard]] peers::http_response answer_post(const peers::http_request& request) const;

    const page_address at_;
    const source source_;
    peers::http_listener listener_; // last: its threads use the above
};

} // namespace csi_lab
