// Sockets, the poll set and the UDP client, on the real system.
#include <cerrno>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/poll_set.h"
#include "platform/socket.h"
#include "platform/udp_client.h"
#include "support/fixtures.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

namespace {

struct pipe_pair {
    pipe_pair() { EXPECT_EQ(pipe(ends), 0); }
    ~pipe_pair() {
        close(ends[0]);
        close(ends[1]);
    }
    int ends[2] = {-1, -1};
};

/// A bound UDP socket that a udp_client can talk to.
struct bound_socket {
    bound_socket() {
        EXPECT_TRUE(bind_address(fd, "127.0.0.1", 0));
        port = local_port(fd);
    }
    ~bound_socket() { close(fd); }
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    std::uint16_t port = 0;
};

} // namespace

TEST(poll_set, takes_changes_and_removes_descriptors) {
    poll_set set;
    poll_set_add(set, 0, POLLIN);
    poll_set_add(set, -1, POLLIN);
    EXPECT_TRUE(set.records.empty());
    for (const int fd : {5, 6, 7}) {
        poll_set_add(set, fd, POLLIN);
    }
    poll_set_add(set, 6, POLLOUT);
    ASSERT_EQ(set.records.size(), 3U);
    EXPECT_EQ(set.records[1].events, POLLOUT);
    EXPECT_EQ(poll_set_modify(set, 5, POLLOUT), 0);
    EXPECT_EQ(set.records[0].events, POLLOUT);
    EXPECT_EQ(poll_set_modify(set, 9, POLLIN), -1);
    EXPECT_EQ(errno, ENOENT);
    poll_set_remove(set, 9);
    poll_set_remove(set, 6);
    ASSERT_EQ(set.records.size(), 2U);
    EXPECT_EQ(set.records[1].fd, 7);
}

TEST(poll_set, reports_one_event_per_condition) {
    pipe_pair pipe;
    poll_set set;
    const pipe_pair quiet;
    poll_set_add(set, quiet.ends[0], poll_readable);
    poll_set_add(set, pipe.ends[0], poll_readable);
    EXPECT_TRUE(poll_set_wait(set, 0).empty());
    ASSERT_EQ(write(pipe.ends[1], "x", 1), 1);
    close(pipe.ends[1]);
    std::vector<poll_event> events = poll_set_wait(set, 1000);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].event, static_cast<std::uint32_t>(POLLIN));
    EXPECT_EQ(events[1].event, static_cast<std::uint32_t>(POLLHUP));

    rlimit few{};
    getrlimit(RLIMIT_NOFILE, &few);
    set.records.resize(static_cast<std::size_t>(few.rlim_cur) + 1,
                       {-1, 0, 0}); // more than the system takes
    events = poll_set_wait(set, 0);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].fd, -1);
    EXPECT_EQ(events[0].event, static_cast<std::uint32_t>(POLLERR));
}

TEST(udp_client, exchanges_one_datagram_each_way) {
    bound_socket peer;
    udp_client client("127.0.0.1", peer.port);
    ASSERT_GT(client.fd(), 0);
    EXPECT_NE(fcntl(client.fd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(client.exchange("late", 0), ""); // nobody has answered yet

    std::vector<char> buffer(100);
    std::string from;
    std::uint16_t port = 0;
    EXPECT_EQ(recv_from(peer.fd, buffer, from, &port), 4);
    EXPECT_EQ(from, "127.0.0.1");
    EXPECT_EQ(port, client.local_port());
    const std::string large(5000, 'y');
    EXPECT_EQ(send_text_to(peer.fd, large, from, port, 0), 5000);
    EXPECT_EQ(client.exchange("now", 1000), large.substr(0, udp_client::receive_buffer_size));
    std::string unchanged = "as it was";
    EXPECT_TRUE(client.receive(unchanged)); // nothing there is no error
    EXPECT_EQ(unchanged, "as it was");

    udp_client moved(std::move(client));
    EXPECT_EQ(client.fd(), -1); // NOLINT: what a moved-from client is
    EXPECT_EQ(moved.local_port(), port);
    EXPECT_EQ(send_text_to(peer.fd, "still here", from, port, 0), 10);
    EXPECT_EQ(moved.exchange("again", 1000), "still here");
}

TEST(udp_client, fails_without_waiting) {
    const stopwatch watch;
    udp_client nowhere("no address", 14310);
    EXPECT_EQ(nowhere.fd(), -1);
    EXPECT_EQ(nowhere.exchange("{}", 5000), "");
    std::string kept = "kept";
    EXPECT_FALSE(nowhere.send("{}") || nowhere.receive(kept));
    EXPECT_EQ(kept, "kept");
    std::uint16_t free_port = bound_socket().port;
    udp_client refused("127.0.0.1", free_port);
    EXPECT_EQ(refused.exchange("{}", 5000), ""); // the refusal ends the wait
    EXPECT_LT(watch.elapsed(), 2s);
}

TEST(socket, addresses_and_options) {
    sockaddr_un local{};
    make_local_address(std::string(200, 'p'), local);
    EXPECT_EQ(std::string(local.sun_path, sizeof local.sun_path), std::string(108, 'p'));
    make_local_address("short", local);
    EXPECT_EQ(std::string(local.sun_path, sizeof local.sun_path), "short" + std::string(103, '\0'));
    EXPECT_TRUE(is_inet_address("127.0.0.1"));
    EXPECT_FALSE(is_inet_address("localhost"));
    EXPECT_FALSE(is_inet_address("1.2.3"));

    temporary_directory directory;
    const int receiver = socket(AF_UNIX, SOCK_DGRAM, 0);
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    EXPECT_TRUE(bind_address(receiver, directory.path + "/r", 0));
    EXPECT_TRUE(bind_address(sender, directory.path + "/s", 0));
    EXPECT_EQ(send_text_to(sender, "hello", directory.path + "/r", 0, 0), 5);
    std::vector<char> buffer(64);
    std::string from;
    EXPECT_EQ(set_blocking(sender, false), 0);
    EXPECT_EQ(recv_from(sender, buffer, from, nullptr), -1); // at once: there is nothing
    EXPECT_EQ(recv_from(receiver, buffer, from, nullptr), 5);
    EXPECT_EQ(from, directory.path + "/s");
    close(receiver);
    close(sender);

    EXPECT_EQ(bind_device(-1, AF_PACKET, 3, "lo"), 1);
    EXPECT_EQ(interface_running("nothing0"), -1);
    EXPECT_EQ(interface_running("lo"), 1);
    EXPECT_EQ(set_blocking(-1, true), -1);
}

TEST(socket, accepts_and_closes_streams) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(set_reuse_address(listener, 1), 0);
    ASSERT_TRUE(bind_address(listener, "127.0.0.1", 0));
    ASSERT_EQ(listen(listener, 1), 0);
    const int caller = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_TRUE(connect_address(caller, "127.0.0.1", local_port(listener)));
    std::string address;
    std::uint16_t port = 0;
    const int accepted = accept_peer(listener, address, port);
    EXPECT_EQ(address, "127.0.0.1");
    EXPECT_EQ(port, local_port(caller));
    EXPECT_EQ(set_keepalive(accepted, {3, 10, 5}), 0);
    EXPECT_EQ(send_text(caller, "hi", 0), 2);
    std::vector<char> buffer(10);
    EXPECT_EQ(recv_into(accepted, buffer, 0), 2);
    EXPECT_EQ(socket_error(accepted), 0);
    EXPECT_EQ(close_stream(accepted), 0);
    EXPECT_EQ(recv_into(caller, buffer, 0), 0);
    close(caller);
    close(listener);
}
