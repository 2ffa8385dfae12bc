/// Peers that do as little as possible, so that benchmarks measure the daemon's side.
#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "platform/descriptor.h"

namespace csi_bench {

/// A core service at 127.0.0.1 with one answer to "active_bots" and one to all other requests.
class udp_peer {
public:
    explicit udp_peer(std::string active_bots = "{}");
    ~udp_peer();
    udp_peer(const udp_peer&) = delete;
    udp_peer& operator=(const udp_peer&) = delete;

private:
    void run();

    const std::string active_bots_;
    csi_receiver::descriptor socket_;
    std::thread thread_; // last: uses the above
};

/// An HTTP server on 127.0.0.1 that answers every request with the same command. Serves one
/// connection at a time. Clients must close theirs before it is destroyed.
class http_peer {
public:
    static constexpr const char* body = R"({"cmd":"version"})";

    http_peer();
    ~http_peer();
    http_peer(const http_peer&) = delete;
    http_peer& operator=(const http_peer&) = delete;

    [[nodiscard]] std::uint16_t port() const;

private:
    void run();
    static void serve(const csi_receiver::descriptor& client);

    csi_receiver::descriptor socket_;
    std::thread thread_; // last: uses the above
};

} // namespace csi_bench
