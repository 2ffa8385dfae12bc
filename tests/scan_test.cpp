// The station scan: check by check without its timer, and on real timers with the lab's radio.
#include <gtest/gtest.h>

#include "support/client_fixture.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

namespace {

constexpr int never_ms = 3600 * 1000;

const std::string bot_101 = "101:127.0.0.1:wlan0:0A0000000101,";
const std::string bot_102 = "102:127.0.0.2:wlan0:0A0000000102,";

std::string sounding_101(int rate, bool quiet = false) {
    return R"({"cmd":"sounding","ifname":"wlan0","uuid":"101","hwaddr":"0a:00:00:00:01:01","quiet":)" +
           std::string(quiet ? "true" : "false") + R"(,"rate":)" + std::to_string(rate) + "}";
}

std::string report(const std::string& found) {
    return R"({"cmd":"scan","zorvin":9001,"uuid":9001,"success":true,"reason":"complete","found":[)" +
           found + "]}\n";
}

const std::string active_bots = R"({"cmd":"active_bots"})";

/// What the core service replies, to any request.
const texts found_101 = {R"({"bots":[{"uuid":"101","count":1}],"success":true,"ping":1})"};
const texts found_none = {R"({"bots":[],"success":true,"ping":1})"};

/// A scanner by itself, whose checks the test makes unless it gives a period.
struct scanner_parts {
    scanner_parts(std::uint16_t port, const std::string& routes, int period_ms = never_ms)
        : session("127.0.0.1", port, state)
        , subject(state, routing, session, identity, period_ms) {
        session.set_urls("v2", identity.uuid);
        routing.add_routing(routes);
    }
    /// A whole scan. Returns how many checks it took.
    int run() {
        subject.start();
        int checks = 1;
        while (subject.check()) {
            ++checks;
        }
        return checks;
    }

    client_state state;
    routing_table routing;
    zorvin_identity identity{"9001", false};
    rest_session session;
    scanner subject;
};

struct scan : client {
    /// From now on the core service replies this.
    void see(const texts& reply) {
        core.answer_with([reply](const std::string&) { return std::optional(reply); });
    }
    /// Lets the first check of a scan hang in its request until `go_on`, and a little longer.
    void hold_first_check() {
        active_bots_requests = 0;
        go_on = false;
        core.answer_with([this](const std::string& request) -> std::optional<texts> {
            if (request == active_bots && ++active_bots_requests == 2) {
                static_cast<void>(wait_until([this] { return go_on.load(); }));
                std::this_thread::sleep_for(150ms); // for what was begun right after go_on
            }
            return found_101;
        });
    }
    /// What was sent since the last call.
    texts heard() {
        texts result;
        for (const peers::message& message : journal.select("daemon", "")) {
            result.push_back(message.text);
        }
        journal.clear();
        return result;
    }
    /// Waits until the text was sent so many times since then.
    [[nodiscard]] bool hears(const std::string& text, std::ptrdiff_t count = 1) const {
        return journal.wait_for(
            [&](const auto& messages) {
                return std::count_if(messages.begin(), messages.end(), [&](const auto& message) {
                           return message.text == text;
                       }) >= count;
            },
            bound);
    }

    captured_output output;
    std::atomic<int> active_bots_requests{0};
    std::atomic<bool> go_on{false};
};

} // namespace

TEST_F(scan, is_news_when_it_finds_more_or_fewer_bots_than_were_reported) {
    scanner_parts parts(server.port(), bot_101);
    for (const auto& [finds, quiet, is_news] : {std::tuple(false, false, false),
                                                {true, false, true},
                                                {true, false, false},
                                                {false, false, true},
                                                {true, true, true},
                                                {true, true, false},
                                                {false, true, true},
                                                {false, true, false}}) {
        SCOPED_TRACE(testing::PrintToString(std::tuple(finds, quiet, is_news)));
        see(finds ? found_101 : found_none);
        if (quiet) {
            parts.subject.be_quiet();
        }
        EXPECT_EQ(parts.run(), finds ? 1 : 10);
        EXPECT_EQ(parts.state.status_update.exchange(false), is_news);
        static_cast<void>(parts.subject.take_found()); // reported
    }
    see(found_101);
    parts.run();
    static_cast<void>(parts.subject.take_found());
    parts.run();
    EXPECT_TRUE(parts.state.status_update) << "the main loop has not sent it yet";
}

TEST_F(scan, ends_with_the_first_check_when_all_bots_are_found) {
    const std::string in_version_3 = R"({"cmd":"scan","zorvin":9001,"request":"zorvinMsg",)"
                                     R"("success":true,"reason":"complete","found":[]})";
    see(found_101);
    for (const auto& [routing, sent] :
         {std::pair(bot_101 + bot_101, report("101,101")), {"", in_version_3 + "\n"}}) {
        scanner_parts parts(server.port(), routing);
        parts.identity.is_v3 = routing.empty();
        EXPECT_EQ(parts.run(), 1);
        EXPECT_EQ(heard().back(), sent);
    }
    EXPECT_EQ(scanner::default_period_ms, 1000);
}

TEST_F(scan, gives_way_to_what_the_server_wants_while_it_stops_a_bot) {
    scanner_parts parts(server.port(), bot_101);
    bot_record& bot = parts.routing.bots().front();
    const struct {
        std::vector<bool> wishes; // one for each request to sound or not
        texts requests;
    } rows[] = {
        {{false}, {active_bots, sounding_101(0)}},
        {{true, true}, {active_bots, sounding_101(0), sounding_101(10)}},
        {{true, false, false}, {active_bots, sounding_101(0), sounding_101(10), sounding_101(0)}}};
    for (const auto& row : rows) {
        see(found_none);
        bot.sounding = false;
        parts.subject.be_quiet();
        parts.subject.start();
        static_cast<void>(heard());
        std::size_t wish = 0;
        core.answer_with([&](const std::string& request) -> std::optional<texts> {
            if (request != active_bots) {
                bot.sounding = row.wishes.at(wish++);
            }
            return found_101;
        });
        EXPECT_FALSE(parts.subject.check());
        texts expected = row.requests;
        expected[1] = sounding_101(0, true); // only what the scan itself wants is quiet
        EXPECT_EQ(heard(), expected);
    }
}

TEST_F(scan, is_in_progress_until_its_last_request_was_sent) {
    scanner_parts parts(server.port(), bot_101);
    core.answer_with([&](const std::string& request) -> std::optional<texts> {
        if (request == sounding_101(0)) {
            parts.subject.start(); // as the main thread could meanwhile
        }
        return found_none;
    });
    EXPECT_EQ(parts.run(), 10);
    const texts sent = heard();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), active_bots), 11);
    EXPECT_EQ(sent.size(), 14U) << "and one sounding, its stop and the report";
}

TEST_F(scan, sends_nothing_new_when_the_daemon_ends) {
    // 4 for the start, 3 for the check that finds a Bot, 2 for each of the others, 1 for the end.
    constexpr std::size_t datagrams = 26;
    peers::core_service second(journal, "127.0.0.2");
    for (std::size_t last = 1; last <= datagrams; ++last) {
        scanner_parts parts(server.port(), bot_101 + bot_102);
        std::atomic<std::size_t> count{0};
        const auto answer = [&](const std::string&) -> std::optional<texts> {
            parts.state.stop = ++count == last;
            return found_101;
        };
        core.answer_with(answer);
        second.answer_with(answer);
        parts.run();
        EXPECT_EQ(count, last);
        const bool is_reported = last == datagrams;
        EXPECT_EQ(heard().size(), last + (is_reported ? 1 : 0));
        EXPECT_EQ(count_line(output.lines(), "Scan complete"), is_reported ? 1U : 0U);
    }
}

TEST_F(scan, finish_and_the_client_s_end_wait_for_the_check_in_flight) {
    {
        scanner_parts parts(server.port(), bot_101, 5);
        hold_first_check();
        parts.subject.start();
        ASSERT_TRUE(hears(active_bots, 2));
        go_on = true;
        parts.subject.finish();
        EXPECT_EQ(heard().back(), report("101"));
    }
    {
        hold_first_check();
        zorvin_client ending(-1, settings, 5);
        ending.routing().add_routing(bot_101);
        ending.scan_start();
        ASSERT_TRUE(hears(active_bots, 2));
        journal.clear();
        go_on = true;
    }
    EXPECT_EQ(heard(), texts{R"({"cmd":"del_interface","ifname":"wlan0"})"});
}

TEST_F(scan, a_slow_core_service_does_not_end_scanning_for_good) {
    // The closing steps of each scan take longer than the polls that bring the next "scan".
    core.answer_with([this](const std::string& request) -> std::optional<texts> {
        if (request == sounding_101(0)) {
            const std::size_t gets = server.gets();
            static_cast<void>(wait_until([&] { return server.gets() > gets + 1; }, 400ms));
        }
        const bool is_info = request.find(R"("info")") != std::string::npos;
        return is_info ? std::nullopt : std::optional(found_none);
    });
    for (int scans = 100; scans > 0; --scans) {
        server.queue(R"({"cmd":"scan"})");
    }
    running_client run(settings, 5);
    EXPECT_TRUE(hears(report(""), 3));
}
