// What a REST server sends, through libcurl: the bits of the first byte choose a POST or a GET for
// each of four requests. The rest are replies, taken in turn. 0x1d separates them and 0x1e their
// pieces, and after one that ends with 0x1f the connection stays open.
//
// The functions below take the network's place. Every connection leads here, wherever libcurl wants
// to go. Waiting only moves the clock: a silent server costs no time, and a request that exceeds
// its time-out shows.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "harness.h"
#include "http/http_client.h"
#include "platform/descriptor.h"

namespace {

struct connection {
    csi_receiver::descriptor end;
    bool used = false;
};
std::array<connection, 1024> connections; // by libcurl's descriptor

std::istringstream replies;
std::string sent;                    // everything that the server sent
int answered = 0;                    // requests, within one call
std::atomic<std::int64_t> waited{0}; // ns, in poll

bool is_open(int fd) {
    return fd >= 0 && connections.at(static_cast<std::size_t>(fd)).end.is_open();
}

/// libcurl's receive buffer. Allocating 10 MB for every request would take longer than all else.
std::array<char, 0x1000000> receive_buffer;

void* allocate(std::size_t size) {
    return size < 0x800000 ? std::malloc(size) : receive_buffer.data(); // NOLINT: for libcurl
}

void release(void* memory) {
    if (memory != receive_buffer.data()) {
        std::free(memory); // NOLINT: for libcurl
    }
}

void reply_to(connection& client) {
    std::string reply;
    std::getline(replies, reply, '\x1d');
    if (replies.peek() == EOF) {
        replies.clear();
        replies.seekg(0);
    }
    answered += reply.empty() ? 0 : 1; // libcurl repeats a request on a connection that ends
    const bool stays = !reply.empty() && reply.back() == '\x1f';
    std::istringstream pieces(reply.substr(0, reply.size() - (stays ? 1 : 0)));
    for (std::string piece; std::getline(pieces, piece, '\x1e');) {
        if (!piece.empty()) { // a packet; the system holds ten
            sent += piece;
            static_cast<void>(write(client.end.get(), piece.data(), piece.size()));
        }
    }
    if (!stays) {
        client.end.reset();
    }
}

} // namespace

// NOLINTBEGIN: the names are the system's and the libraries'
extern "C" {

int connect(int fd, const sockaddr* /*address*/, socklen_t /*length*/) {
    int ends[2];
    assert(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
    dup2(ends[0], fd);
    close(ends[0]);
    connections.at(static_cast<std::size_t>(fd)) = {csi_receiver::descriptor(ends[1]), false};
    return 0;
}

ssize_t send(int fd, const void* bytes, std::size_t length, int flags) {
    if (!is_open(fd)) {
        return syscall(SYS_sendto, fd, bytes, length, flags, nullptr, 0);
    }
    const std::string_view text(static_cast<const char*>(bytes), length);
    connection& client = connections.at(static_cast<std::size_t>(fd));
    // HTTP, or the first byte of TLS. Whatever follows within TLS never means anything.
    assert(client.used || text[0] == '\x16' || text.rfind("GET ", 0) == 0 ||
           text.rfind("POST ", 0) == 0);
    client.used = true;
    reply_to(client);
    return static_cast<ssize_t>(length);
}

int poll(pollfd* polled, nfds_t count, int timeout_ms) {
    const bool ours =
        std::any_of(polled, polled + count, [](const pollfd& one) { return is_open(one.fd); });
    const int limit_ms = ours ? 0 : timeout_ms;
    const timespec limit{limit_ms / 1000, limit_ms % 1000 * 1000000L};
    const int ready = ppoll(polled, count, limit_ms < 0 ? nullptr : &limit, nullptr);
    waited += ours && ready == 0 ? timeout_ms * std::int64_t{1000000} : 0;
    return ready;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW) {
        const std::int64_t shifted = time->tv_nsec + waited;
        time->tv_sec += shifted / 1000000000;
        time->tv_nsec = shifted % 1000000000;
    }
    return result;
}

int getaddrinfo(const char* /*name*/, const char* /*service*/, const addrinfo* /*wanted*/,
                addrinfo** /*result*/) {
    return EAI_NONAME;
}

/// Reads no certificates, which would take longer still.
int X509_STORE_load_file(void* /*store*/, const char* /*file*/) {
    return 1;
}

// Each POST leaves a list of headers behind, for compatibility.
const char* __asan_default_options() {
    return "detect_leaks=0";
}

} // extern "C"
// NOLINTEND

void fuzz::run(const std::string& input) {
    // libcurl 7.88 uses memory that it has freed when a later reply begins with a folded header.
    std::string lines = input;
    lines.erase(std::remove(lines.begin(), lines.end(), '\x1e'), lines.end());
    if (lines.find("\n ") != std::string::npos || lines.find("\n\t") != std::string::npos) {
        return;
    }
    const std::string url = "http://127.0.0.1:/v2/zorvins/1/msg";
    static const CURLcode initialised = curl_global_init_mem(CURL_GLOBAL_ALL, &allocate, &release,
                                                             &std::realloc, &strdup, &std::calloc);
    assert(initialised == CURLE_OK);
    const unsigned posts = input.empty() ? 0 : static_cast<unsigned char>(input[0]);
    replies = std::istringstream(input.substr(std::min<std::size_t>(input.size(), 1)));
    sent.clear();
    curl_http::http_client http(80);
    for (unsigned call = 0; call < 4; ++call) {
        const bool is_post = (posts >> call & 1U) != 0;
        const bool was_connected = http.connected();
        answered = 0;
        log.str("");
        const auto begin = std::chrono::steady_clock::now();
        const std::string body = is_post ? http.post_json(url, "{}") : http.get(url);
        assert(std::chrono::steady_clock::now() - begin < std::chrono::seconds(is_post ? 21 : 6));
        assert(answered <= 11); // ten redirects
        assert(sent.find(body) != std::string::npos);
        assert(!http.connected() || answered > 0);
        assert(log.str().empty() == (http.connected() || !was_connected));
        for (connection& each : connections) {
            assert(!each.end.is_open() || each.used);
        }
    }
    replies = std::istringstream("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nback");
    assert(http.get(url) == "back" && http.connected()); // no reply spoils the next request
    for (connection& each : connections) {
        each.end.reset();
    }
}
