/// A server that answers to harm: in place of the real one, at its port.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "peers/connection.h"
#include "peers/sockets.h"

namespace csi_soak {

enum class hostile_answer {
    too_long_content_length,  // the connection closes before the body is complete
    too_short_content_length, // the first bytes of a command, and then the rest of it
    invalid_content_length,
    endless_headers,
    slow_bytes,      // one at a time
    redirect_circle, // to the same URL again and again
    redirect_to_ftp, // at the same port
};

/// Gives the same kind of answer to each request, and closes the connection. Listens on 127.0.0.1
/// from construction to destruction.
class hostile_server {
public:
    /// Port 0 lets the system choose. Throws std::runtime_error when the port is in use.
    hostile_server(std::uint16_t port, hostile_answer kind);
    ~hostile_server();
    hostile_server(const hostile_server&) = delete;
    hostile_server& operator=(const hostile_server&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] std::size_t answers() const { return answers_; }
    /// Connections on which the client sent nothing, but waited: as a client of FTP does.
    [[nodiscard]] std::size_t waiting_clients() const { return waiting_clients_; }

private:
    void serve_all();
    void serve(peers::connection& client);
    void answer(peers::connection& client);
    void send_endless_headers(peers::connection& client);
    void send_slowly(peers::connection& client);
    void pause(std::chrono::milliseconds time) const;

    const hostile_answer kind_;
    peers::waker stop_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::size_t> answers_{0};
    std::atomic<std::size_t> waiting_clients_{0};
    const peers::descriptor socket_;
    const std::uint16_t port_;
    std::thread thread_; // last: it uses all of the above
};

} // namespace csi_soak
