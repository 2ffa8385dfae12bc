/// Peers that cost as little as a peer can, so that what is measured is the daemon's side.
#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "peers/sockets.h"
#include "platform/socket.h"

namespace csi_bench {

/// A core service at 127.0.0.1 that gives one answer to "active_bots" and one to all else.
class udp_peer {
public:
    explicit udp_peer(std::string active_bots = "{}");
    ~udp_peer();
    udp_peer(const udp_peer&) = delete;
    udp_peer& operator=(const udp_peer&) = delete;

private:
    void run();

    const std::string active_bots_;
    csi_lab::descriptor socket_;
    std::thread thread_; ///< Last: it uses the above.
};

/// An HTTP server on 127.0.0.1 that answers every request with the same command. Serves one
/// connection at a time; its clients close theirs before it ends.
class http_peer {
public:
    static constexpr const char* body = R"({"cmd":"version"})";

    http_peer();
    ~http_peer();
    http_peer(const http_peer&) = delete;
    http_peer& operator=(const http_peer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return csi_receiver::local_port(socket_.get()); }

private:
    void run();
    static void serve(const csi_lab::descriptor& client);

    csi_lab::descriptor socket_;
    std::thread thread_; ///< Last: it uses the above.
};

} // namespace csi_bench
