#include "soak/hostile_server.h"

#include <array>
#include <optional>
#include <string>
#include <utility>

#include <sys/socket.h>

#include "platform/socket.h"

namespace csi_soak {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t max_request = 65'536; // longer than any request of the daemon
constexpr milliseconds max_silence(1000);

std::string with_length(const std::string& length, const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body;
}

/// Announces that the connection closes: libcurl repeats a request at most five times on
/// connections that die, and would not follow all the redirects.
std::string redirect_to(const std::string& location) {
    return "HTTP/1.1 302 Found\r\nConnection: close\r\nContent-Length: 0\r\nLocation: " + location +
           "\r\n\r\n";
}

/// Whether the request is there with all of its body.
bool is_complete(const std::string& request) {
    const std::size_t end = request.find("\r\n\r\n");
    if (end == std::string::npos) {
        return false;
    }
    const std::string name = "Content-Length: ";
    const std::size_t length = request.find(name);
    const std::size_t body =
        length < end ? std::stoul(request.substr(length + name.size())) : std::size_t{0};
    return request.size() >= end + 4 + body;
}

} // namespace

hostile_server::hostile_server(std::uint16_t port, hostile_answer kind)
    : kind_(kind)
    , socket_(peers::listen_tcp("127.0.0.1", port))
    , port_(csi_receiver::local_port(socket_.get()))
    , thread_([this] { serve_all(); }) {}

hostile_server::~hostile_server() {
    stopping_ = true;
    stop_.wake();
    thread_.join();
}

/// One connection at a time: the daemon has one.
void hostile_server::serve_all() {
    while (!stopping_) {
        if (!peers::wait_readable(socket_, stop_, std::nullopt)) {
            continue;
        }
        peers::descriptor accepted(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (accepted.is_open()) {
            peers::connection client(std::move(accepted), 0, stop_);
            serve(client);
        }
    }
}

void hostile_server::serve(peers::connection& client) {
    if (!client.wait(max_silence)) {
        waiting_clients_ += stopping_ ? 0U : 1U;
        return;
    }
    std::string request;
    std::array<char, 4096> buffer{};
    while (!is_complete(request) && request.size() < max_request) {
        const std::size_t count = client.read(buffer.data(), buffer.size());
        if (count == 0) {
            return;
        }
        request.append(buffer.data(), count);
    }
    ++answers_;
    answer(client);
}

void hostile_server::answer(peers::connection& client) {
    const std::string rubbish = R"({"cmd":"version"}, said the stranger)";
    switch (kind_) {
    case hostile_answer::too_long_content_length:
        static_cast<void>(client.write(with_length("4000000000", rubbish)));
        break;
    case hostile_answer::too_short_content_length:
        static_cast<void>(client.write(with_length("6", rubbish)));
        break;
    case hostile_answer::invalid_content_length:
        static_cast<void>(client.write(with_length("-17", rubbish)));
        break;
    case hostile_answer::endless_headers:
        send_endless_headers(client);
        break;
    case hostile_answer::slow_bytes:
        send_slowly(client);
        break;
    case hostile_answer::redirect_circle:
        static_cast<void>(client.write(redirect_to("/v2/zorvins/again")));
        break;
    case hostile_answer::redirect_to_ftp:
        static_cast<void>(
            client.write(redirect_to("ftp://127.0.0.1:" + std::to_string(port_) + "/x")));
        break;
    }
}

void hostile_server::send_endless_headers(peers::connection& client) {
    std::string headers = "HTTP/1.1 200 OK\r\n";
    while (client.write(headers) && !client.closed_by_client()) {
        headers = "X-More: " + std::string(1000, 'x') + "\r\n";
        pause(milliseconds(1));
    }
}

/// Ends with the server.
void hostile_server::pause(milliseconds time) const {
    static_cast<void>(peers::wait_readable(peers::descriptor(), stop_, time));
}

void hostile_server::send_slowly(peers::connection& client) {
    const std::string start = with_length("1000000", "");
    for (std::size_t sent = 0; !stopping_ && !client.closed_by_client(); ++sent) {
        if (!client.write(sent < start.size() ? start.substr(sent, 1) : "x")) {
            return;
        }
        pause(milliseconds(100));
    }
}

} // namespace csi_soak
