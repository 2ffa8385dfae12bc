/// Finds the request that an answer belongs to: nothing in the messages ties them together.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>

#include "lab/recording.h"

namespace csi_lab {

/// The peer of the entry: "server", "fusion" or "core 127.0.0.1".
[[nodiscard]] std::string peer_of(const entry& what);

/// Takes the entries of a recording in their order. For one thread at a time.
class pairing {
public:
    /// For a peer's answer, and for "timeout" instead of one, the request that it answers; for a
    /// reply of the daemon, the server's command. nullopt for all others.
    [[nodiscard]] std::optional<entry> request_of(const entry& what);

private:
    struct requests {
        std::deque<entry> open; // the oldest first
        std::optional<entry> answered;
    };

    void add_request(const entry& what);
    [[nodiscard]] std::optional<entry> take_request(const entry& answer);
    [[nodiscard]] std::optional<entry> take_command(const entry& reply);

    std::map<std::string, requests> by_peer_;
    std::optional<entry> command_; // of the server, without a reply so far
};

} // namespace csi_lab
