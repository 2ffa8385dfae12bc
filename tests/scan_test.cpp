// The station scan: check by check without its timer, and on real timers with the lab's radio.
#include <gtest/gtest.h>

#include "support/client_fixture.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

namespace {

constexpr int never_ms = 3600 * 1000;

std::string sounding(int bot, int rate, bool quiet = false) {
    const std::string number = std::to_string(bot);
    return R"({"cmd":"sounding","ifname":"wlan0","uuid":")" + number +
           R"(","hwaddr":"0a:00:00:00:0)" + number[0] + ":" + number.substr(1) + R"(","quiet":)" +
           (quiet ? "true" : "false") + R"(,"rate":)" + std::to_string(rate) + "}";
}

/// The routing item of a Bot at 127.0.0.1, or at another Zorvin of that network.
std::string at(int bot, int zorvin = 1) {
    const std::string number = std::to_string(bot);
    return number + ":127.0.0." + std::to_string(zorvin) + ":wlan0:0A0000000" + number + ",";
}

std::string report(const std::string& found) {
    return R"({"cmd":"scan","zorvin":9001,"uuid":9001,"success":true,"reason":"complete","found":[)" +
           found + "]}";
}

const std::string active_bots = R"({"cmd":"active_bots"})";

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
    /// From now on the core service reports these Bots, "uuid" members as they stand.
    static void report_bots(peers::core_service& service, const std::string& bots) {
        service.answer_with([bots](const std::string& request) -> std::optional<texts> {
            const bool asks = request == active_bots;
            return texts{asks ? "{\"bots\":[" + bots + "]}" : R"({"ping":1,"success":true})"};
        });
    }
    void see(const std::string& bots) { report_bots(core, bots); }

    /// Lets the first check of a scan hang in its request until `go_on`, and a little longer.
    void hold_first_check() {
        active_bots_requests = 0;
        go_on = false;
        core.answer_with([this](const std::string& request) -> std::optional<texts> {
            if (request == active_bots && ++active_bots_requests == 2) {
                static_cast<void>(wait_until([this] { return go_on.load(); }));
                std::this_thread::sleep_for(150ms); // for what was begun right after go_on
            }
            return texts{R"({"bots":[{"uuid":"101","count":1}],"success":true})"};
        });
    }
    /// What was sent since the last call; "2: " marks what went to the Zorvin at 127.0.0.2.
    texts heard() {
        texts result;
        for (const peers::message& message : journal.select("daemon", "")) {
            result.push_back((message.to == "core 127.0.0.2" ? "2: " : "") + message.text);
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

TEST_F(scan, goes_check_by_check_and_ends_after_ten) {
    peers::core_service second(journal, "127.0.0.2");
    scanner_parts parts(server.port(), at(101) + at(102, 2) + at(103) + at(104));
    bot_record& started = *parts.routing.find_bot_by_uuid("102");
    started.sounding = true; // by an engine: the scan never touches it
    parts.state.sounding_rate = 25;
    see(R"({"uuid":"104","count":1})"); // the answer to the start is not used
    report_bots(second, "");
    static_cast<void>(output.lines());
    EXPECT_FALSE(parts.subject.check()) << "there is no scan";
    EXPECT_EQ(heard(), texts{});

    parts.subject.start();
    EXPECT_EQ(heard(), (texts{active_bots, "2: " + active_bots, sounding(101, 25),
                              sounding(103, 25), sounding(104, 25)}));
    EXPECT_EQ(output.lines(), (texts{"adding 0a:00:00:00:01:01", "adding 0a:00:00:00:01:02",
                                     "adding 0a:00:00:00:01:03", "adding 0a:00:00:00:01:04"}));
    parts.subject.start(); // one is in progress
    EXPECT_EQ(heard(), texts{});

    see(R"({"uuid":"102","count":9},{"uuid":"104","count":0})"); // 102 is the other Zorvin's
    report_bots(second, R"({"uuid":"102","count":9},{"uuid":"103","count":1})");
    EXPECT_TRUE(parts.subject.check());
    EXPECT_EQ(heard(), (texts{active_bots, "2: " + active_bots}));
    see(R"({"uuid":"103","count":1},{"uuid":"101","count":1},{"uuid":"55","count":1})");
    EXPECT_TRUE(parts.subject.check()); // found in the order of the routing
    EXPECT_EQ(heard(),
              (texts{active_bots, sounding(101, 0), sounding(103, 0), "2: " + active_bots}));
    EXPECT_EQ(output.lines(), (texts{"Station 0a:00:00:00:01:02 uuid 102 is a Bot",
                                     "Station 0a:00:00:00:01:01 uuid 101 is a Bot",
                                     "Station 0a:00:00:00:01:03 uuid 103 is a Bot"}));
    see("");
    parts.subject.start(); // changes nothing in the scan
    for (int check = 3; check < 10; ++check) {
        EXPECT_TRUE(parts.subject.check());
        EXPECT_EQ(heard(), (texts{active_bots, "2: " + active_bots}));
    }
    EXPECT_FALSE(parts.subject.check());
    EXPECT_EQ(heard(), (texts{active_bots, "2: " + active_bots, report("102,101,103") + "\n",
                              sounding(104, 0)}));
    EXPECT_EQ(output.lines(),
              (texts{"[ 127.0.0.1 ] <-- " + report("102,101,103"), "Scan complete"}));
    EXPECT_FALSE(parts.subject.check()) << "the scan has ended";
    texts reported;
    for (const bot_record* const bot : parts.subject.take_found()) {
        reported.push_back(bot->uuid);
    }
    EXPECT_EQ(reported, (texts{"101", "102", "103"})); // in the order of the routing

    see(R"({"uuid":"104","count":1},{"uuid":"103","count":1},{"uuid":"101","count":1})");
    EXPECT_EQ(parts.run(), 1) << "the next one starts anew, and ends when all are found";
    EXPECT_EQ(heard().back(), report("101,103,104,102") + "\n");
    EXPECT_TRUE(started.sounding);
}

TEST_F(scan, is_news_when_it_finds_more_or_fewer_bots_than_were_reported) {
    const std::string some = R"({"uuid":"101","count":1})";
    const struct {
        std::string seen;
        bool quiet;
        bool is_news;
    } rows[] = {{"", false, false}, {some, false, true}, {some, false, false}, {"", false, true},
                {some, true, true}, {some, true, false}, {"", true, true},     {"", true, false}};
    scanner_parts parts(server.port(), at(101));
    for (const auto& row : rows) {
        see(row.seen);
        if (row.quiet) {
            parts.subject.be_quiet();
        }
        EXPECT_EQ(parts.run(), row.seen.empty() ? 10 : 1);
        EXPECT_EQ(parts.state.status_update.exchange(false), row.is_news) << &row - rows;
        static_cast<void>(parts.subject.take_found()); // reported
    }
    see(some);
    parts.run();
    EXPECT_EQ(parts.subject.take_found().size(), 1U);
    parts.subject.forget_reported();
    parts.state.status_update = false;
    parts.run();
    EXPECT_TRUE(parts.state.status_update);
    static_cast<void>(parts.subject.take_found());
    parts.run();
    EXPECT_TRUE(parts.state.status_update) << "the main loop has not sent it yet";
}

TEST_F(scan, is_quiet_until_it_ends) {
    scanner_parts parts(server.port(), at(101) + at(102));
    see(R"({"uuid":"101","count":1})");
    static_cast<void>(output.lines());
    parts.subject.be_quiet();
    EXPECT_EQ(parts.run(), 10);
    texts sent(13, active_bots);
    sent.insert(sent.begin() + 1, {sounding(101, 10, true), sounding(102, 10, true)});
    sent[4] = sounding(101, 0, true);
    sent.back() = sounding(102, 0, true);
    EXPECT_EQ(heard(), sent);
    EXPECT_EQ(output.lines(), texts{});
    parts.run();
    EXPECT_EQ(heard().at(1), sounding(101, 10)) << "the next one is loud again";
    EXPECT_EQ(count_line(output.lines(), "Scan complete"), 1U);
    parts.subject.start();
    parts.subject.be_quiet(); // the scan in progress
    while (parts.subject.check()) {
    }
    EXPECT_EQ(heard().back(), sounding(102, 0, true));
    EXPECT_EQ(count_line(output.lines(), "Scan complete"), 0U);
}

TEST_F(scan, finds_all_bots_of_one_uuid) {
    scanner_parts parts(server.port(), at(101) + at(101));
    see(R"({"uuid":"101","count":1})");
    EXPECT_EQ(parts.run(), 1);
    EXPECT_EQ(heard().back(), report("101,101") + "\n");
}

TEST_F(scan, of_no_bots_ends_with_the_first_check) {
    scanner_parts parts(server.port(), "");
    parts.identity.is_v3 = true;
    EXPECT_EQ(parts.run(), 1);
    EXPECT_EQ(heard(), texts{R"({"cmd":"scan","zorvin":9001,"request":"zorvinMsg","success":true,)"
                             "\"reason\":\"complete\",\"found\":[]}\n"});
    EXPECT_EQ(scanner::default_period_ms, 1000);
}

TEST_F(scan, gives_way_to_what_the_server_wants_while_it_stops_a_bot) {
    scanner_parts parts(server.port(), at(101));
    bot_record& bot = parts.routing.bots().front();
    const struct {
        std::vector<bool> wishes; // one for each request to sound or not
        texts requests;
    } rows[] = {{{false}, {active_bots, sounding(101, 0)}},
                {{true, true}, {active_bots, sounding(101, 0), sounding(101, 10)}},
                {{true, false, false},
                 {active_bots, sounding(101, 0), sounding(101, 10), sounding(101, 0)}}};
    for (const auto& row : rows) {
        see("");
        bot.sounding = false;
        parts.subject.be_quiet();
        parts.subject.start();
        static_cast<void>(heard());
        std::size_t wish = 0;
        core.answer_with([&](const std::string& request) -> std::optional<texts> {
            if (request != active_bots) {
                bot.sounding = row.wishes.at(wish++);
            }
            return texts{R"({"bots":[{"uuid":"101","count":1}],"success":true})"};
        });
        EXPECT_FALSE(parts.subject.check());
        texts expected = row.requests;
        expected[1] = sounding(101, 0, true); // only what the scan itself wants is quiet
        EXPECT_EQ(heard(), expected);
    }
}

TEST_F(scan, is_in_progress_until_its_last_request_was_sent) {
    scanner_parts parts(server.port(), at(101));
    std::atomic<int> stops{0};
    core.answer_with([&](const std::string& request) -> std::optional<texts> {
        if (request == sounding(101, 0)) {
            parts.subject.start(); // as the main thread could meanwhile
            ++stops;
        }
        return texts{R"({"bots":[],"success":true})"};
    });
    EXPECT_EQ(parts.run(), 10);
    EXPECT_EQ(stops, 1);
    const texts sent = heard();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), active_bots), 11);
    EXPECT_EQ(sent.size(), 14U);
}

TEST_F(scan, sends_nothing_new_when_the_daemon_ends) {
    // 4 for the start, 3 for the check that finds a Bot, 2 for each of the others, 1 for the end.
    constexpr std::size_t datagrams = 26;
    peers::core_service second(journal, "127.0.0.2");
    for (std::size_t last = 1; last <= datagrams; ++last) {
        scanner_parts parts(server.port(), at(101) + at(102, 2));
        std::atomic<std::size_t> count{0};
        const auto answer = [&](const std::string&) -> std::optional<texts> {
            parts.state.stop = ++count == last;
            return texts{R"({"bots":[{"uuid":"101","count":1}],"success":true})"};
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
        scanner_parts parts(server.port(), at(101), 5);
        hold_first_check();
        parts.subject.start();
        ASSERT_TRUE(hears(active_bots, 2));
        go_on = true;
        parts.subject.finish();
        EXPECT_EQ(heard().back(), report("101") + "\n");
    }
    {
        hold_first_check();
        zorvin_client ending(-1, settings, 5);
        ending.routing().add_routing(at(101));
        ending.scan_start();
        ASSERT_TRUE(hears(active_bots, 2));
        journal.clear();
        go_on = true;
    }
    EXPECT_EQ(heard(), texts{R"({"cmd":"del_interface","ifname":"wlan0"})"});
}

TEST_F(scan, quiet_and_loud_scans_on_real_timers) {
    see(R"({"uuid":"101","count":1})");
    running_client run(settings, 20);
    const std::string status =
        "{\"bot_info\":[{\"bot\":101,\"hwaddr\":\"0a:00:00:00:01:01\",\"chains\":1}]}\n";
    // The first scan is quiet: its tick falls into the turn that attaches. It sends no report, but
    // what it found is news.
    ASSERT_TRUE(hears(status));
    const texts quiet = heard();
    EXPECT_EQ(count_line(quiet, sounding(101, 10, true)), 1U);
    EXPECT_EQ(count_line(quiet, report("101") + "\n"), 0U);
    server.queue(R"({"cmd":"scan"})");
    EXPECT_TRUE(hears(report("101") + "\n"));
    EXPECT_TRUE(hears(status)) << "the command emptied the list of what was reported";
}

TEST_F(scan, a_slow_core_service_does_not_end_scanning_for_good) {
    // The closing steps of each scan take longer than the polls that bring the next "scan".
    core.answer_with([this](const std::string& request) -> std::optional<texts> {
        if (request == sounding(101, 0)) {
            const std::size_t gets = server.gets();
            static_cast<void>(wait_until([&] { return server.gets() > gets + 1; }, 400ms));
        }
        const bool is_info = request.find(R"("info")") != std::string::npos;
        return is_info ? std::nullopt
                       : std::optional(texts{R"({"bots":[],"success":true,"ping":1})"});
    });
    for (int scans = 100; scans > 0; --scans) {
        server.queue(R"({"cmd":"scan"})");
    }
    running_client run(settings, 5);
    EXPECT_TRUE(hears(report("") + "\n", 3));
}
