#include "peers/http_listener.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <iterator>
#include <limits>
#include <set>
#include <thread>

#include <httplib.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>

#include "peers/connection.h"
#include "peers/sockets.h"
#include "platform/socket.h"

namespace peers {
namespace {

constexpr std::chrono::hours keep_alive(1);
constexpr const char* address = "127.0.0.1";

/// Lets the HTTP library read from a connection, and collects what it writes: a response is sent in
/// one piece, or half of it.
class stream : public httplib::Stream {
public:
    explicit stream(connection& over)
        : over_(over) {}

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }

    ssize_t read(char* to, size_t size) override {
        // The client may wait for an interim response before it sends the body.
        return flush() ? static_cast<ssize_t>(over_.read(to, size)) : -1;
    }

    ssize_t write(const char* from, size_t size) override {
        written_.append(from, size);
        return static_cast<ssize_t>(size);
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        ip = address;
        port = over_.remote_port();
    }

    void get_local_ip_and_port(std::string& ip, int& port) const override {
        ip = address;
        port = 0;
    }

    socket_t socket() const override { return INVALID_SOCKET; }

    [[nodiscard]] bool flush() {
        const std::string text = std::exchange(written_, {});
        return over_.write(text);
    }

    void flush_half_of_body() {
        const std::size_t body = std::min(written_.find("\r\n\r\n"), written_.size() - 4) + 4;
        written_.resize(body + (written_.size() - body) / 2);
        static_cast<void>(flush());
    }

    enum class outcome { whole, cut, none };
    outcome wanted = outcome::whole; // what the handler wants sent of its response
    [[nodiscard]] const connection& over() const { return over_; }

private:
    connection& over_;
    std::string written_;
};

/// The stream whose request this thread handles: the library passes only the request to handlers.
thread_local stream* current = nullptr;

/// Restores the disposition of SIGPIPE, which the library changes for the whole process: programs
/// that a test starts would inherit it.
class sigpipe_guard {
public:
    sigpipe_guard() { sigaction(SIGPIPE, nullptr, &saved_); }
    ~sigpipe_guard() { sigaction(SIGPIPE, &saved_, nullptr); }
    sigpipe_guard(const sigpipe_guard&) = delete;
    sigpipe_guard& operator=(const sigpipe_guard&) = delete;

private:
    struct sigaction saved_ {};
};

http_request copy_of(const httplib::Request& from) {
    // The library adds these to the headers that the client sent.
    static const std::set<std::string> added{"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR",
                                             "LOCAL_PORT"};
    http_request result{std::chrono::steady_clock::now(),
                        from.method,
                        from.target,
                        {},
                        from.body,
                        static_cast<std::uint16_t>(from.remote_port)};
    std::copy_if(from.headers.begin(), from.headers.end(), std::back_inserter(result.headers),
                 [](const auto& header) { return added.count(header.first) == 0; });
    return result;
}

/// Makes the library read requests and write responses; it accepts no connections.
class parser : public httplib::Server {
public:
    explicit parser(http_listener::handler respond)
        : respond_(std::move(respond)) {
        const auto handle = [this](const httplib::Request& request, httplib::Response& response) {
            fill(response, request);
        };
        Get(".*", handle);
        Post(".*", handle);
        set_keep_alive_timeout(std::chrono::seconds(keep_alive).count());
        set_keep_alive_max_count(std::numeric_limits<int>::max());
    }

    using httplib::Server::process_request;

private:
    void fill(httplib::Response& response, const httplib::Request& request) const {
        const auto given = respond_(copy_of(request), current->over());
        if (!given) {
            current->wanted = stream::outcome::none;
            return;
        }
        current->wanted = given->cut ? stream::outcome::cut : stream::outcome::whole;
        response.status = given->status;
        if (!given->body.empty()) {
            response.set_content(given->body, "application/json");
        }
    }

    http_listener::handler respond_;
};

std::unique_ptr<parser> make_parser(http_listener::handler respond) {
    const sigpipe_guard guard;
    return std::make_unique<parser>(std::move(respond));
}

} // namespace

std::string http_request::header(const std::string& name) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& one) {
        return strcasecmp(one.first.c_str(), name.c_str()) == 0;
    });
    return found == headers.end() ? std::string() : found->second;
}

class http_listener::impl {
public:
    impl(std::uint16_t port, std::size_t threads, handler respond)
        : socket_(listen_tcp(address, port))
        , port_(csi_receiver::local_port(socket_.get()))
        , parser_(make_parser(std::move(respond)))
        , pool_(threads)
        , acceptor_([this] { accept_all(); }) {}

    ~impl() {
        stopping_ = true;
        stop_.wake();
        acceptor_.join();
        pool_.shutdown();
    }

    impl(const impl&) = delete;
    impl& operator=(const impl&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }

private:
    void accept_all();
    void accept_one();
    void serve(connection& client);
    bool serve_request(connection& client);

    waker stop_;
    std::atomic<bool> stopping_{false};
    descriptor socket_;
    const std::uint16_t port_;
    std::unique_ptr<parser> parser_;
    httplib::ThreadPool pool_;
    std::thread acceptor_; // last: it uses all of the above
};

void http_listener::impl::accept_all() {
    while (!stopping_) {
        if (wait_readable(socket_, stop_, std::nullopt)) {
            accept_one();
        }
    }
}

void http_listener::impl::accept_one() {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    descriptor accepted(
        accept4(socket_.get(), reinterpret_cast<sockaddr*>(&from), &size, SOCK_CLOEXEC));
    if (!accepted.is_open()) {
        // Probably out of descriptors: give the open connections time to end.
        static_cast<void>(wait_readable(descriptor(), stop_, std::chrono::milliseconds(50)));
        return;
    }
    const auto client =
        std::make_shared<connection>(std::move(accepted), ntohs(from.sin_port), stop_);
    pool_.enqueue([this, client] { serve(*client); });
}

void http_listener::impl::serve(connection& client) {
    while (!stopping_ && client.wait(keep_alive) && serve_request(client)) {
    }
}

bool http_listener::impl::serve_request(connection& client) {
    stream exchange(client);
    current = &exchange;
    bool closed = false;
    const bool done = parser_->process_request(exchange, false, closed, nullptr);
    current = nullptr;
    switch (exchange.wanted) {
    case stream::outcome::none:
        return false;
    case stream::outcome::cut:
        exchange.flush_half_of_body();
        return false;
    case stream::outcome::whole:
        break;
    }
    return exchange.flush() && done && !closed;
}

http_listener::http_listener(std::uint16_t port, std::size_t threads, handler respond)
    : impl_(std::make_unique<impl>(port, threads, std::move(respond))) {}

http_listener::~http_listener() = default;

std::uint16_t http_listener::port() const {
    return impl_->port();
}

} // namespace peers
