#include "bench/peers.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <sys/socket.h>

#include "core/core_request.h"
#include "peers/sockets.h"
#include "platform/socket.h"

namespace csi_bench {
namespace {

constexpr const char* address = "127.0.0.1";
constexpr std::string_view accepted = R"({"ping":"pong","success":true})";

/// Whether the text is a whole request, including its body.
bool is_complete(const std::string& text) {
    constexpr std::string_view length_header = "Content-Length: ";
    const std::size_t end = text.find("\r\n\r\n");
    const std::size_t length = text.find(length_header);
    if (end == std::string::npos) {
        return false;
    }
    const char* const digits =
        length < end ? text.c_str() + length + length_header.size() : text.c_str() + text.size();
    return text.size() >= end + 4 + std::strtoul(digits, nullptr, 10);
}

} // namespace

udp_peer::udp_peer(std::string active_bots)
    : active_bots_(std::move(active_bots))
    , socket_(peers::bind_udp(address, csi_receiver::core_service_port))
    , thread_([this] { run(); }) {}

udp_peer::~udp_peer() {
    // An empty datagram ends the thread.
    const csi_receiver::descriptor sender(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    csi_receiver::send_text_to(sender.get(), "", address, csi_receiver::core_service_port, 0);
    thread_.join();
}

void udp_peer::run() {
    std::array<char, 4096> request{};
    sockaddr_in from{};
    auto* const sender = reinterpret_cast<sockaddr*>(&from);
    while (true) {
        socklen_t size = sizeof from;
        const ssize_t count =
            recvfrom(socket_.get(), request.data(), request.size(), 0, sender, &size);
        if (count <= 0) {
            return;
        }
        const std::string_view text(request.data(), static_cast<std::size_t>(count));
        const bool is_query = text.find("active_bots") != std::string_view::npos;
        const std::string_view answer = is_query ? std::string_view(active_bots_) : accepted;
        sendto(socket_.get(), answer.data(), answer.size(), 0, sender, size);
    }
}

http_peer::http_peer()
    : socket_(peers::listen_tcp(address, 0))
    , thread_([this] { run(); }) {}

http_peer::~http_peer() {
    shutdown(socket_.get(), SHUT_RDWR); // makes accept fail
    thread_.join();
}

std::uint16_t http_peer::port() const {
    return csi_receiver::local_port(socket_.get());
}

void http_peer::run() {
    while (true) {
        const csi_receiver::descriptor client(accept(socket_.get(), nullptr, nullptr));
        if (!client.is_open()) {
            return;
        }
        serve(client);
    }
}

void http_peer::serve(const csi_receiver::descriptor& client) {
    const std::string text = body;
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                               "Content-Length: " +
                               std::to_string(text.size()) + "\r\n\r\n" + text;
    std::string request;
    std::array<char, 4096> buffer{};
    while (true) {
        const ssize_t count = recv(client.get(), buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            return;
        }
        request.append(buffer.data(), static_cast<std::size_t>(count));
        if (is_complete(request)) {
            send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
            request.clear();
        }
    }
}

} // namespace csi_bench
