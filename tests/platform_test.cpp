// Sockets, the poll set, timers and the utilities, on the real system.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/poll_set.h"
#include "platform/socket.h"
#include "platform/timer.h"
#include "platform/udp_client.h"
#include "platform/utilities.h"
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

TEST(timer, first_delay_period_and_stop_by_false) {
    std::atomic<int> runs{0};
    threading::timer timer(
        200, [&runs] { return ++runs < 3; }, 0);
    const stopwatch watch;
    timer.start(50000);
    ASSERT_TRUE(wait_until([&runs] { return runs == 1; }));
    EXPECT_GE(watch.elapsed(), 50ms);
    EXPECT_LT(watch.elapsed(), 180ms);
    ASSERT_TRUE(wait_until([&runs] { return runs == 3; }));
    EXPECT_GE(watch.elapsed(), 450ms);
    EXPECT_FALSE(wait_until([&runs] { return runs > 3; }, 500ms)) << "false did not stop it";

    const stopwatch again;
    timer.start(0); // the first expiry is one period away
    ASSERT_TRUE(wait_until([&runs] { return runs == 4; }));
    EXPECT_GE(again.elapsed(), 200ms);
    timer.start(100000);
    EXPECT_EQ(timer.stop(), 0);
    EXPECT_FALSE(wait_until([&runs] { return runs > 4; }, 300ms)) << "stop did not stop it";
}

TEST(timer, runs_never_overlap_and_finish_waits_for_the_last) {
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> runs{0};
    std::atomic<bool> release{false};
    threading::timer timer(
        10,
        [&] {
            most = std::max<int>(most, ++inside);
            wait_until([&release] { return release.load(); });
            --inside;
            ++runs;
            return true;
        },
        0);
    timer.start(1);
    ASSERT_TRUE(wait_until([&inside] { return inside == 1; }));
    EXPECT_FALSE(wait_until([&most] { return most > 1; }, 100ms));
    std::thread releaser([&release] {
        std::this_thread::sleep_for(50ms);
        release = true;
    });
    timer.finish();
    EXPECT_EQ(inside, 0);
    const int ended = runs;
    EXPECT_FALSE(wait_until([&] { return runs > ended; }, 100ms)) << "a run after finish";
    releaser.join();
}

TEST(timer, a_start_during_a_run_outlives_the_false_of_that_run) {
    std::atomic<int> runs{0};
    threading::timer* self = nullptr;
    threading::timer timer(
        50,
        [&] {
            if (++runs == 1) {
                self->start(0);
                return false;
            }
            return true;
        },
        0);
    self = &timer;
    timer.start(1);
    EXPECT_TRUE(wait_until([&runs] { return runs >= 3; }));
}

TEST(timer, destroying_it_at_any_moment_is_safe) {
    for (int round = 0; round < 200; ++round) {
        auto runs = std::make_shared<std::atomic<int>>(0);
        threading::timer timer(
            1, [runs] { return ++*runs > 0; }, 0);
        timer.start(1 + round * 10);
        wait_until([&runs] { return *runs > 0; }, std::chrono::milliseconds(round % 4));
    }
}

TEST(timer, refused_by_the_system_throws_its_text) {
    rlimit old{};
    getrlimit(RLIMIT_SIGPENDING, &old);
    const rlimit none{0, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    EXPECT_THROW(threading::interval_timer(1000), std::runtime_error);
    setrlimit(RLIMIT_SIGPENDING, &old);
}

TEST(timer, interval_timer_is_waited_on) {
    const stopwatch watch;
    threading::interval_timer timer(20000);
    for (int turn = 0; turn < 3; ++turn) {
        EXPECT_TRUE(timer.wait());
    }
    EXPECT_GE(watch.elapsed(), 55ms);
}

TEST(utilities, text_functions) {
    const struct {
        const char* id;
        const char* decimal;
    } ids[] = {{"0x10", "16"},
               {"16", "16"},
               {"0X10", "0X10"},
               {"x10", "x10"},
               {"0xZZ", "0"},
               {"0x", "0"},
               {"0xffffffffffffffff", "18446744073709551615"},
               {"0x1Ag", "26"},
               {"", ""}};
    for (const auto& row : ids) {
        std::string id = row.id;
        hex_id_to_decimal(id);
        EXPECT_EQ(id, row.decimal) << row.id;
    }
    EXPECT_EQ(split(",a,,b,", ','), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(split("", ',').empty());
    EXPECT_EQ(mac_to_string({0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F}), "0a:0b:0c:0d:0e:0f");
    EXPECT_EQ(id_to_mac(0x00020A0B0C0D0E0FU), "0a:0b:0c:0d:0e:0f");
    EXPECT_EQ(id_to_mac(0), "00:00:00:00:00:00");
    EXPECT_EQ(run_command("printf '  one\\n two\\n'"), "one two");
    EXPECT_EQ(run_command("printf 'a\\nb\\n'"), "ab");
    EXPECT_EQ(run_command("/no/such/command 2>&1 | tail -c 0"), "");
    // The passphrase is fixed, so the key of a network name is too; made with another program.
    EXPECT_EQ(derive_psk("csi-lab"),
              "75b9a9cf24d4ed37605f0cc01bdfe67b70a7eb98695a0b13e0b7bdd377c72296");
}

TEST(utilities, time_zone_from_the_tool_or_the_default) {
    captured_output output;
    EXPECT_EQ(apply_time_zone("/no/such/tool").size(), 3U);
    EXPECT_STREQ(getenv("TZ"), "EST5EDT");
    EXPECT_EQ(output.lines().back(), "[Utilit]: Time zone is EST5EDT");

    temporary_directory directory;
    const std::string tool = directory.write("tool", "#!/bin/sh\necho noise\necho \"$2,x/$1\"\n");
    chmod(tool.c_str(), 0755);
    EXPECT_EQ(get_time_zone(tool), (std::vector<std::string>{"TZ", "x/get"}));
}
