#include "peers/http_listener.h"

#include <chrono>
#include <utility>

#include <netinet/in.h>
#include <sys/socket.h>

#include "peers/connection.h"
#include "platform/socket.h"

namespace peers {
namespace {

constexpr std::chrono::hours keep_alive(1);

} // namespace

http_listener::http_listener(std::uint16_t port, std::size_t threads, handler respond,
                             const std::string& address)
    : respond_(std::move(respond))
    , socket_(listen_tcp(address, port))
    , port_(csi_receiver::local_port(socket_.get())) {
    threads_.reserve(threads);
    for (std::size_t count = 0; count < threads; ++count) {
        threads_.emplace_back([this] { run(); });
    }
}

http_listener::~http_listener() {
    stop_.wake();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void http_listener::run() {
    while (!stop_.is_awake()) {
        accept_and_serve();
    }
}

void http_listener::accept_and_serve() {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    descriptor accepted;
    {
        const std::lock_guard<std::mutex> lock(accept_mutex_);
        if (!wait_readable(socket_, stop_, std::nullopt)) {
            return;
        }
        accepted = descriptor(
            accept4(socket_.get(), reinterpret_cast<sockaddr*>(&from), &size, SOCK_CLOEXEC));
        if (!accepted.is_open()) {
            // Probably out of descriptors: give the open connections time to end.
            static_cast<void>(wait_readable(descriptor(), stop_, std::chrono::milliseconds(50)));
            return;
        }
    }
    connection client(std::move(accepted), ntohs(from.sin_port), stop_);
    while (!stop_.is_awake() && client.wait(keep_alive) && serve_request(client)) {
    }
}

/// False when the connection is to be closed.
bool http_listener::serve_request(connection& client) const {
    http_request request;
    const read_result read = read_request(client, request);
    if (read == read_result::malformed) {
        static_cast<void>(client.write(format_response({400, {}}, false)));
    }
    if (read != read_result::complete) {
        return false;
    }
    const bool keep = request.keep_alive;
    const auto response = request.method == "GET" || request.method == "POST"
                              ? respond_(std::move(request), client)
                              : http_response{405, {}};
    return response && client.write(format_response(*response, keep)) && keep && !response->cut;
}

} // namespace peers
