// Sockets, the poll set and the UDP client, on the real system.
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <netpacket/packet.h>
#include <sched.h>
#include <sys/resource.h>

#include "platform/poll_set.h"
#include "platform/socket.h"
#include "platform/udp_client.h"
#include "support/fixtures.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

namespace {

using bits = std::vector<std::uint32_t>;

/// A bound UDP socket that a udp_client can talk to.
struct bound_socket {
    explicit bound_socket(std::uint16_t port = 0, const char* address = "127.0.0.1") {
        EXPECT_TRUE(bind_address(socket.get(), address, port));
    }
    [[nodiscard]] std::uint16_t port() const { return local_port(socket.get()); }
    void send(const std::string& text, std::uint16_t to) const {
        EXPECT_EQ(send_text_to(socket.get(), text, "127.0.0.1", to, 0), text.size());
    }
    descriptor socket{::socket(AF_INET, SOCK_DGRAM, 0)};
};

bits wait_for_bits(poll_set& set, int timeout_ms) {
    bits result;
    for (const poll_event& event : poll_set_wait(set, timeout_ms)) {
        result.push_back(event.event);
    }
    return result;
}

int option(int fd, int level, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    getsockopt(fd, level, name, &value, &length);
    return value;
}

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

} // namespace

TEST(poll_set, takes_changes_and_removes_descriptors) {
    poll_set set;
    for (const int fd : {0, -1, 5, 6, 7, 8}) {
        poll_set_add(set, fd, POLLIN);
    }
    poll_set_add(set, 7, POLLOUT);
    EXPECT_EQ(poll_set_modify(set, 5, POLLOUT), 0);
    EXPECT_EQ(poll_set_modify(set, 9, POLLIN), -1);
    EXPECT_EQ(errno, ENOENT);
    poll_set_remove(set, 9);
    poll_set_remove(set, 6);
    std::vector<std::pair<int, short>> left;
    for (const pollfd& record : set.records) {
        left.emplace_back(record.fd, record.events);
    }
    EXPECT_EQ(left, (std::vector<std::pair<int, short>>{{5, POLLOUT}, {7, POLLOUT}, {8, POLLIN}}));
}

TEST(poll_set, reports_one_event_per_condition) {
    int quiet[2];
    int full[2];
    int unread[2];
    ASSERT_EQ(pipe(quiet) + pipe(full) + pipe(unread), 0);
    poll_set set;
    poll_set_add(set, quiet[0], poll_readable);
    poll_set_add(set, full[0], poll_readable);
    const stopwatch watch;
    EXPECT_EQ(wait_for_bits(set, 50), bits{});
    EXPECT_GE(watch.elapsed(), 50ms);
    poll_set_add(set, unread[1], POLLOUT);
    ASSERT_EQ(write(full[1], "x", 1), 1);
    close(full[1]);
    close(unread[0]);
    EXPECT_EQ(wait_for_bits(set, 1000), (bits{POLLIN, POLLHUP, POLLOUT, POLLERR}));
    EXPECT_EQ(poll_set_wait(set, 0).back().fd, unread[1]);

    poll_set odd;
    poll_set_add(odd, full[1], poll_readable);
    EXPECT_EQ(wait_for_bits(odd, 1000), bits{}) << "POLLNVAL is not an event";
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const auto too_many = static_cast<std::size_t>(files.rlim_cur) + 1; // for the system
    odd.records.resize(too_many, {-1, 0, 0});
    EXPECT_EQ(wait_for_bits(odd, 0), bits{POLLERR});
    EXPECT_EQ(poll_set_wait(odd, 0).front().fd, -1);
}

TEST(udp_client, exchanges_one_datagram_each_way) {
    const bound_socket peer;
    udp_client client("127.0.0.1", peer.port());
    ASSERT_NE(fcntl(client.fd(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(client.exchange("late", 0), ""); // no answer yet

    std::vector<char> buffer(100);
    std::string from;
    std::uint16_t port = 0;
    EXPECT_EQ(recv_from(peer.socket.get(), buffer, from, &port), 4);
    EXPECT_EQ(std::pair(from, port), std::pair(std::string("127.0.0.1"), client.local_port()));
    const std::string large(5000, 'y');
    peer.send(large, port);
    EXPECT_EQ(client.exchange("now", 1000), large.substr(0, 4096));
    std::string text = "as it was";
    EXPECT_TRUE(client.receive(text)); // no datagram is not an error
    peer.send("", port);
    EXPECT_TRUE(client.receive(text)); // nor is an empty one
    EXPECT_EQ(text, "as it was");
    peer.send("new", port);
    EXPECT_TRUE(client.receive(text));
    EXPECT_EQ(text, "new");
}

TEST(udp_client, reads_once_per_event_and_the_last_datagram_wins) {
    bound_socket peer;
    const std::uint16_t port = peer.port();
    udp_client client("127.0.0.1", port);
    const int on = 1;
    ASSERT_EQ(setsockopt(client.fd(), IPPROTO_IP, IP_RECVERR, &on, sizeof on), 0);
    peer.socket.reset();
    EXPECT_TRUE(client.send("refused")); // stays in the queue of errors: POLLERR from now on
    EXPECT_EQ(socket_error(client.fd()), ECONNREFUSED);
    const bound_socket again(port);
    for (const char* const text : {"first", "second", "third"}) {
        again.send(text, client.local_port());
    }
    EXPECT_EQ(client.exchange("x", 1000), "second");
}

TEST(udp_client, takes_no_datagram_from_a_stranger) {
    const bound_socket peer;
    const bound_socket stranger(0, "127.0.0.2");
    udp_client client("127.0.0.1", peer.port(), [&](std::uint16_t port) {
        stranger.send(R"({"success":"yes"})", port); // bound, not yet connected: it gets in
        stranger.send(R"({"success":true})", port);
    });
    peer.send("the answer", client.local_port());
    EXPECT_EQ(client.exchange("request", 2000), "the answer");

    // One that is still on its way into the socket when that is connected gets in, too.
    sockaddr nobody{};
    nobody.sa_family = AF_UNSPEC;
    ASSERT_EQ(connect(client.fd(), &nobody, sizeof nobody), 0);
    ASSERT_TRUE(bind_address(client.fd(), "0.0.0.0", client.local_port()));
    stranger.send("forged", client.local_port());
    std::string reply = "unchanged";
    EXPECT_TRUE(client.receive(reply));
    EXPECT_EQ(reply, "unchanged");
}

TEST(udp_client, moves_with_its_socket_and_polls_no_other) {
    const bound_socket peer;
    const bound_socket silent;
    udp_client client("127.0.0.1", peer.port());
    const std::uint16_t port = client.local_port();
    udp_client moved(std::move(client));
    EXPECT_EQ(client.fd(), -1); // NOLINT: what a moved-from client is
    EXPECT_EQ(moved.local_port(), port);
    peer.send("still here", port);
    EXPECT_EQ(moved.exchange("again", 1000), "still here");

    peer.send("not for the client that it was moved from", port);
    const int last = moved.fd();
    for (udp_client* const assigned : {&client, &moved}) {
        *assigned = udp_client("127.0.0.1", silent.port());
        const stopwatch watch;
        EXPECT_EQ(assigned->exchange("x", 50), "");
        EXPECT_GE(watch.elapsed(), 50ms);
    }
    EXPECT_FALSE(is_open(last));
}

TEST(udp_client, fails_without_waiting) {
    const stopwatch watch;
    udp_client nowhere("no address", 14310);
    EXPECT_EQ(nowhere.fd(), -1);
    EXPECT_EQ(nowhere.exchange("{}", 5000), "");
    std::string kept = "kept";
    EXPECT_FALSE(nowhere.send("{}") || nowhere.receive(kept));
    const bound_socket peer;
    EXPECT_EQ(udp_client("127.0.0.1", peer.port()).exchange(std::string(70000, 'z'), 5000), "");
    udp_client refused("127.0.0.1", bound_socket().port());
    EXPECT_EQ(refused.exchange("{}", 5000), ""); // the refusal ends the wait
    EXPECT_TRUE(refused.send("{}"));
    EXPECT_FALSE(refused.receive(kept));
    EXPECT_EQ(kept, "kept");

    const descriptor input(dup(STDIN_FILENO));
    close(STDIN_FILENO);
    EXPECT_EQ(udp_client("127.0.0.1", peer.port()).local_port(), 0) << "descriptor 0 is of no use";
    EXPECT_TRUE(is_open(STDIN_FILENO)) << "and is never closed";
    dup2(input.get(), STDIN_FILENO);
    EXPECT_LT(watch.elapsed(), 4s);
}

TEST(socket, addresses) {
    sockaddr_in inet{};
    EXPECT_TRUE(make_inet_address("1.2.3.4", 0x1234, inet) && is_inet_address("127.0.0.1"));
    for (const char* const text : {"localhost", "1.2.3", ""}) {
        EXPECT_FALSE(make_inet_address(text, 0, inet) || is_inet_address(text)) << text;
    }
    EXPECT_EQ(std::memcmp(&inet.sin_port, "\x12\x34\1\2\3\4", 6), 0)
        << "other bytes are sent, or a refused text changed them";
    sockaddr_un local{};
    make_local_address(std::string(200, 'p'), local);
    EXPECT_EQ(std::string(local.sun_path, sizeof local.sun_path), std::string(108, 'p'));
    make_local_address("short", local);
    EXPECT_EQ(std::string(local.sun_path, sizeof local.sun_path), "short" + std::string(103, '\0'));
    const descriptor named(socket(AF_UNIX, SOCK_DGRAM, 0));
    EXPECT_TRUE(bind_address(named.get(), std::string("\0name", 5), 0)); // the system keeps 110
    socklen_t length = sizeof local;
    getsockname(named.get(), reinterpret_cast<sockaddr*>(&local), &length);
    EXPECT_EQ(length, 110U);
}

TEST(socket, local_sockets_and_flags) {
    temporary_directory directory;
    const std::string path = directory.path;
    const descriptor receiver(socket(AF_UNIX, SOCK_DGRAM, 0));
    const descriptor sender(socket(AF_UNIX, SOCK_DGRAM, 0));
    const int fd = sender.get();
    EXPECT_TRUE(bind_address(receiver.get(), path + "/r", 0) && bind_address(fd, path + "/s", 0));
    EXPECT_FALSE(bind_address(fd, path + "/t", 0) || connect_address(fd, path + "/t", 0));
    EXPECT_EQ(send_text_to(fd, "hello", path + "/r", 0, 0), 5);
    std::vector<char> buffer(64);
    std::string from;
    EXPECT_EQ(set_blocking(fd, false), 0);
    ASSERT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(recv_from(fd, buffer, from, nullptr), -1); // at once: nothing has arrived
    EXPECT_EQ(recv_from(receiver.get(), buffer, from, nullptr), 5);
    EXPECT_EQ(from, path + "/s");
    fcntl(fd, F_SETFL, O_APPEND | O_NONBLOCK);
    EXPECT_EQ(set_blocking(fd, true), 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND);
    EXPECT_EQ(set_blocking(-1, true), -1);
}

TEST(socket, interfaces) {
    EXPECT_EQ(bind_device(-1, AF_PACKET, 3, "lo"), 1);
    EXPECT_EQ(interface_running("nothing0"), -1);
    EXPECT_EQ(interface_running("lo"), 1);
    std::thread([] { // in a new network it is down
        EXPECT_TRUE(unshare(CLONE_NEWNET) != 0 || interface_running("lo") == 0);
    })
        .join();
    const descriptor packets(socket(AF_PACKET, SOCK_DGRAM, 0));
    if (packets.is_open()) { // the system grants them
        sockaddr_ll device{};
        socklen_t length = sizeof device;
        EXPECT_EQ(bind_device(packets.get(), AF_PACKET, 0x1234, "lo"), if_nametoindex("lo"));
        getsockname(packets.get(), reinterpret_cast<sockaddr*>(&device), &length);
        EXPECT_EQ(device.sll_protocol, htons(0x1234));
    }
}

TEST(socket, accepts_and_closes_streams) {
    const descriptor listener(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(set_reuse_address(listener.get(), 1), 0);
    EXPECT_EQ(option(listener.get(), SOL_SOCKET, SO_REUSEADDR), 1);
    ASSERT_TRUE(bind_address(listener.get(), "127.0.0.1", 0));
    ASSERT_EQ(listen(listener.get(), 1), 0);
    const descriptor caller(socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_TRUE(connect_address(caller.get(), "127.0.0.1", local_port(listener.get())));
    std::string address;
    std::uint16_t port = 0;
    const int accepted = accept_peer(listener.get(), address, port);
    EXPECT_EQ(std::pair(address, port),
              std::pair(std::string("127.0.0.1"), local_port(caller.get())));
    EXPECT_NE(fcntl(accepted, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(accept_peer(-1, address, port), -1);
    EXPECT_EQ(set_keepalive(-1, {3, 10, 5}), -1);
    EXPECT_EQ(set_keepalive(accepted, {3, 10, 5}), 0);

    EXPECT_EQ(send_text(caller.get(), "hi", 0), 2);
    EXPECT_EQ(send_text(caller.get(), "!", MSG_OOB), 1);
    poll_set set;
    poll_set_add(set, accepted, POLLIN | POLLPRI | POLLOUT);
    EXPECT_EQ(wait_for_bits(set, 1000), (bits{POLLIN, POLLPRI, POLLOUT}));
    std::vector<char> buffer(10);
    EXPECT_EQ(recv_into(accepted, buffer, MSG_PEEK), 2);
    EXPECT_EQ(recv_into(accepted, buffer, MSG_DONTWAIT), 2);
    EXPECT_EQ(socket_error(accepted), 0);
    const descriptor copy(dup(accepted));
    EXPECT_EQ(close_stream(accepted), 0);
    EXPECT_FALSE(is_open(accepted));
    EXPECT_EQ(recv_into(caller.get(), buffer, 0), 0) << "the copy keeps the connection open";
    EXPECT_EQ(option(copy.get(), SOL_SOCKET, SO_KEEPALIVE), 1);
    std::vector<int> values;
    for (const int name : {TCP_KEEPCNT, TCP_KEEPIDLE, TCP_KEEPINTVL, TCP_NODELAY}) {
        values.push_back(option(copy.get(), IPPROTO_TCP, name));
    }
    EXPECT_EQ(values, (std::vector<int>{3, 10, 5, 1}));
}
