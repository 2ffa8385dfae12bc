/// Passes the daemon's requests on to a peer somewhere else, and its answers back.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <curl/curl.h>

#include "peers/datagram_peer.h"
#include "peers/http_listener.h"
#include "peers/journal.h"

namespace csi_lab {

/// A peer under test.
struct target {
    std::string peer;    // "core", "fusion" or "server"
    std::string address; // IPv4, of core and fusion
    std::uint16_t port;  // of core and fusion
    std::string url;     // of the server, without a path
};

/// Reads PEER=WHERE. Throws std::runtime_error that says what is wrong with it.
[[nodiscard]] target parse_target(const std::string& text);

/// Relays to a core service or a fusion daemon; the relay is the peer of this name and address for
/// the daemon. Throws std::runtime_error when the address cannot be bound.
[[nodiscard]] std::unique_ptr<peers::datagram_peer>
make_relay(peers::journal& record, const target& to, const peers::datagram_peer::identity& self);

/// Relays to a REST server, on any free port of 127.0.0.1. Like the daemon, keeps the connection to
/// it open and has one request at a time.
class server_relay {
public:
    server_relay(peers::journal& record, std::string url);

    [[nodiscard]] std::uint16_t port() const { return listener_.port(); }

private:
    std::optional<peers::http_response> pass_on(const peers::http_request& request);

    peers::journal& journal_;
    const std::string url_;
    std::mutex mutex_; // guards the connection
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_;
    peers::http_listener listener_; // last: its threads use the above
};

} // namespace csi_lab
