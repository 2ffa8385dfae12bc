// The client's wait for core services, its first exchange with the server, and its clock.
#include <gtest/gtest.h>

#include "support/client_fixture.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

TEST(client_clock, is_the_monotonic_one) {
    using steady = std::chrono::steady_clock; // CLOCK_MONOTONIC, too
    const pacing::time before = steady::now().time_since_epoch();
    const pacing::time now = monotonic_now();
    EXPECT_LE(before, now);
    EXPECT_LE(now, steady::now().time_since_epoch());
}

TEST_F(client, the_last_zorvin_decides_whether_core_services_are_up) {
    peers::core_service last(journal, "127.0.0.3");
    last.stop();
    settings["routing"] += ",102:127.0.0.2:wlan1:0A0000000102,103:127.0.0.3:wlan2:0A0000000103";
    captured_output output;
    running_client run(settings);
    const auto pings = [&] { return journal.count("daemon", "core 127.0.0.1"); };
    ASSERT_TRUE(wait_until([&] { return pings() >= 4; })); // the first answers, and it waits on
    run.signal(SIGINT);
    const std::size_t before = pings();
    ASSERT_TRUE(wait_until([&] { return pings() >= before + 2; })) << "SIGINT ended the wait";
    const std::vector<peers::message> all = journal.select("daemon", "core 127.0.0.1");
    auto shortest = std::chrono::system_clock::duration::max();
    for (std::size_t at = 1; at < all.size(); ++at) {
        shortest = std::min(shortest, all[at].when - all[at - 1].when);
    }
    EXPECT_GE(shortest, 99ms); // the system's clock may be set meanwhile
    EXPECT_LT(shortest, 190ms);
    last.start(); // the one between stays away, and nobody minds
    EXPECT_TRUE(sees_attaches(1));
    run.signal(SIGHUP);
    run.join();
    const texts lines = output.lines();
    EXPECT_EQ(count_line(lines, "received hangup signal "), 1U);
    EXPECT_EQ(count_line(lines, "Error connecting to core service"), 0U);
}

TEST_F(client, each_pass_over_the_core_services_reads_one_signal) {
    // The signals come during the first pass, whose last ping is answered.
    for (const std::vector<int>& signals : {std::vector{SIGTERM}, {SIGINT, SIGTERM}}) {
        const bool attaches = signals.front() == SIGINT;
        core.stop();
        captured_output output;
        running_client run(settings);
        core.answer_with([&](const std::string& request) {
            for (const int number : request == R"({"ping":null})" ? signals : std::vector<int>()) {
                run.signal(number);
            }
            return std::optional<texts>();
        });
        core.start();
        run.join();
        const texts lines = output.lines();
        EXPECT_EQ(count_line(lines, "Error connecting to core service"), attaches ? 0U : 1U);
        EXPECT_EQ(server.attaches(), attaches ? 1U : 0U);
        core.answer_with({});
    }
}

TEST_F(client, the_log_stays_small_while_core_services_are_waited_for) {
    temporary_directory directory;
    core.stop();
    settings.erase("log");
    settings["log_path"] = directory.path;
    settings["execname"] = "x";
    {
        running_client run(settings);
        const auto is_there = [&](const std::string& file) { // no reader is in the client's way
            std::error_code absent;
            return std::filesystem::file_size(directory.path + file, absent) > 0 && !absent;
        };
        ASSERT_TRUE(wait_until([&] { return is_there("/x.log"); }, bound));
        print(std::string(static_cast<std::size_t>(log_size_limit), '.')); // days of waiting
        EXPECT_TRUE(wait_until([&] { return is_there("/x.log.1") && is_there("/x.log"); }, bound));
    }
    EXPECT_NE(directory.read("x.log.1").find("failed to send"), std::string::npos);
    EXPECT_NE(directory.read("x.log").find("] log rotated\n"), std::string::npos);
}

TEST_F(client, only_an_attach_that_succeeds_requests_a_scan) {
    captured_output output;
    client_state state;
    rest_session session("localhost", server.port(), state);
    session.set_urls("v2", "9001");
    for (const std::string answer : {"", "refused", "accepted"}) {
        server.set_attach_answer(answer);
        const bool attached = session.connect(
            "{}", [](const auto& text, auto& /*reply*/) { return text == "accepted"; });
        EXPECT_EQ(attached, answer == "accepted");
        EXPECT_EQ(state.scan_request, attached);
    }
}
