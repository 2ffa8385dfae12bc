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

const std::string active_bots = R"({"cmd":"active_bots"})";

struct scan : client {
    scan() {
        settings["routing"] = "101:127.0.0.1:wlan0:0A0000000101,102:127.0.0.1:wlan0:0A0000000102,"
                              "103:127.0.0.1:wlan0:0A0000000103";
    }

    /// From now on the core service sees these Bots, "uuid" members as they stand.
    void see(const std::string& bots) {
        core.answer_with([bots](const std::string& request) -> std::optional<texts> {
            const bool asks = request == active_bots;
            return texts{asks ? "{\"bots\":[" + bots + "]}" : R"({"ping":1,"success":true})"};
        });
    }
    /// What the core service heard since the last call.
    texts heard() {
        texts result;
        for (const peers::message& message : journal.select("daemon", "core 127.0.0.1")) {
            result.push_back(message.text);
        }
        journal.clear();
        return result;
    }
    [[nodiscard]] std::size_t reports() const {
        const auto requests = server.requests();
        return static_cast<std::size_t>(
            std::count_if(requests.begin(), requests.end(), [](const auto& request) {
                return request.body.find(R"("cmd":"scan","zorvin")") != std::string::npos;
            }));
    }
    [[nodiscard]] bool sees_report(std::size_t count) {
        return wait_until([&] { return reports() >= count; }, bound);
    }
};

} // namespace

TEST_F(scan, goes_check_by_check_and_ends_after_ten) {
    captured_output output;
    zorvin_client scanner(-1, settings, never_ms);
    scanner.routing().add_routing(settings["routing"]);
    EXPECT_FALSE(scanner.scan_check()) << "there is no scan";
    std::string reply;
    see("");
    scanner.parse_msg(R"({"cmd":"start","bot":102})", reply);
    static_cast<void>(heard());
    static_cast<void>(output.lines());

    scanner.scan_start();
    EXPECT_EQ(heard(), (texts{active_bots, sounding(101, 10), sounding(103, 10)}));
    EXPECT_EQ(output.lines(), (texts{"adding 0a:00:00:00:01:01", "adding 0a:00:00:00:01:02",
                                     "adding 0a:00:00:00:01:03"}));
    scanner.scan_start(); // one is in progress
    EXPECT_EQ(heard(), texts{});

    see(R"({"uuid":"102","count":9},{"uuid":"103","count":0},{"uuid":"55","count":1})");
    EXPECT_TRUE(scanner.scan_check());
    EXPECT_EQ(heard(), texts{active_bots}); // 102 is an engine's: not stopped
    see(R"({"uuid":"101","count":1},{"uuid":"102","count":9})");
    EXPECT_TRUE(scanner.scan_check());
    EXPECT_EQ(heard(), (texts{active_bots, sounding(101, 0)}));
    EXPECT_EQ(output.lines(), (texts{"Station 0a:00:00:00:01:02 uuid 102 is a Bot",
                                     "Station 0a:00:00:00:01:01 uuid 101 is a Bot"}));
    see("");
    for (int check = 3; check < 10; ++check) {
        EXPECT_TRUE(scanner.scan_check());
    }
    static_cast<void>(heard());
    EXPECT_FALSE(scanner.scan_check());
    EXPECT_EQ(heard(), (texts{active_bots, sounding(103, 0)}));
    const texts lines = output.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].find(R"("success":true,"reason":"complete","found":[102,101]})"),
              std::string::npos);
    EXPECT_EQ(lines[1], "Scan complete");

    scanner.parse_msg(R"({"cmd":"bot_info"})", reply);
    EXPECT_EQ(reply, R"({"cmd":"bot_info","success":true,"bot_info":[)"
                     R"({"bot":101,"hwaddr":"0a:00:00:00:01:01","chains":1},)"
                     R"({"bot":102,"hwaddr":"0a:00:00:00:01:02","chains":1}]})");
    scanner.scan_start(); // the next one starts anew, and ends with the first check that finds all
    see(R"({"uuid":"101","count":1},{"uuid":"102","count":9},{"uuid":"103","count":9})");
    EXPECT_FALSE(scanner.scan_check());
}

TEST_F(scan, gives_way_to_an_engine_that_starts_while_it_stops_a_bot) {
    captured_output output;
    zorvin_client scanner(-1, settings, never_ms);
    scanner.routing().add_routing("101:127.0.0.1:wlan0:0A0000000101");
    bot_record& bot = scanner.routing().bots().front();
    see("");
    scanner.scan_start();
    static_cast<void>(heard());
    core.answer_with([&bot](const std::string& request) -> std::optional<texts> {
        if (request == sounding(101, 0)) {
            bot.sounding = true; // what the main thread does when the server starts an engine now
        }
        return texts{R"({"bots":[{"uuid":"101","count":1}],"success":true})"};
    });
    EXPECT_FALSE(scanner.scan_check());
    EXPECT_EQ(heard(), (texts{active_bots, sounding(101, 0), sounding(101, 10)}));
}

TEST_F(scan, quiet_and_loud_scans_on_real_timers) {
    peers::core_service_options quick;
    quick.times = {100ms, 5000ms};
    peers::core_service second(journal, "127.0.0.2", quick);
    second.set_present("102", false);
    settings["routing"] = "101:127.0.0.2:wlan0:0A0000000101,102:127.0.0.2:wlan0:0A0000000102";
    captured_output output;
    running_client run(settings, 60);
    // The first scan is quiet: its tick falls into the turn that attaches. It sends no report, but
    // what it found is news.
    ASSERT_TRUE(sees_reply("{\"bot_info\":[{\"bot\":101,\"hwaddr\":\"0a:00:00:00:01:01\","
                           "\"chains\":1}]}\n"));
    EXPECT_EQ(reports(), 0U);
    EXPECT_EQ(journal.select("daemon", "core 127.0.0.2")[4].text, sounding(101, 10, true));
    server.queue(R"({"cmd":"scan"})");
    ASSERT_TRUE(sees_reply("{\"cmd\":\"scan\",\"zorvin\":9001,\"uuid\":9001,\"success\":true,"
                           "\"reason\":\"complete\",\"found\":[101]}\n"));
    // The command emptied the list of what was reported, so the status follows the report.
    ASSERT_TRUE(server.wait_for(
        [](const auto& requests) {
            return std::count_if(requests.begin(), requests.end(), [](const auto& request) {
                       return request.body.rfind("{\"bot_info\":[{\"bot\":101", 0) == 0;
                   }) == 2;
        },
        bound));
    EXPECT_TRUE(second.sounded().empty());
    run.signal(SIGTERM);
    run.join();
    const texts lines = output.lines();
    EXPECT_EQ(count_line(lines, "adding 0a:00:00:00:01:01"), 1U);
    EXPECT_EQ(count_line(lines, "Scan complete"), 1U);
}

TEST_F(scan, version_three_names_the_zorvin_in_what_is_sent_unasked) {
    peers::core_service_options quick;
    quick.times = {100ms, 5000ms};
    peers::core_service second(journal, "127.0.0.2", quick);
    peers::rest_server_options options;
    options.api = "v3";
    peers::rest_server third(journal, options);
    settings["api"] = "v3";
    settings["http_port"] = std::to_string(third.port());
    settings["routing"] = "0x65:127.0.0.2:wlan0:0A0000000101";
    captured_output output;
    running_client run(settings, 60);
    const auto posts = [&third](const std::string& text) {
        return third.wait_for(
            [&](const auto& requests) {
                return std::any_of(requests.begin(), requests.end(),
                                   [&](const auto& request) { return request.body == text; });
            },
            bound);
    };
    EXPECT_TRUE(posts("{\"request\":\"zorvinMsg\",\"zorvin\":9001,\"bot_info\":["
                      "{\"bot\":101,\"hwaddr\":\"0a:00:00:00:01:01\",\"chains\":1}]}\n"));
    third.queue(R"({"cmd":"scan"})");
    EXPECT_TRUE(
        posts("{\"cmd\":\"scan\",\"zorvin\":9001,\"request\":\"zorvinMsg\",\"success\":true,"
              "\"reason\":\"complete\",\"found\":[101]}\n"));
}

TEST_F(scan, a_slow_core_service_does_not_end_scanning_for_good) {
    settings["routing"] = "101:127.0.0.1:wlan0:0A0000000101";
    captured_output output;
    running_client run(settings, 20);
    ASSERT_TRUE(sees_attaches(1));
    // The first request to stop a Bot is lost each time: the closing steps of a scan take seconds,
    // all else is quick, and the commands that ask for the next scan fall into them.
    std::atomic<unsigned> stops{0};
    core.answer_with([&stops](const std::string& request) -> std::optional<texts> {
        const bool lost = request == sounding(101, 0) && ++stops % 2 == 1;
        return lost ? texts{} : texts{R"({"bots":[],"success":true})"};
    });
    std::atomic<bool> enough{false};
    std::thread impatient([&] {
        while (!enough) {
            if (server.queued() == 0) {
                server.queue(R"({"cmd":"scan"})");
            }
            wait_until([&] { return enough.load(); }, 5ms);
        }
    });
    EXPECT_TRUE(sees_report(3));
    enough = true;
    impatient.join();
}

TEST_F(scan, ends_with_the_client_whatever_the_core_service_does) {
    settings["routing"] = "101:127.0.0.1:wlan0:0A0000000101";
    for (const auto delay : {0ms, 25ms, 90ms}) {
        see("");
        captured_output output;
        running_client run(settings, 10);
        const std::size_t attaches = server.attaches();
        ASSERT_TRUE(wait_until([&] { return server.attaches() > attaches; }));
        core.peer().set_delay(delay);
        journal.clear();
        ASSERT_TRUE(wait_until([&] { return journal.count("daemon", "core 127.0.0.1") > 3; }));
        run.signal(SIGTERM);
        const stopwatch watch;
        run.join();
        EXPECT_LT(watch.elapsed(), 2s);
        EXPECT_EQ(heard().back(), R"({"cmd":"del_interface","ifname":"wlan0"})");
        core.peer().set_delay(0ms);
    }
}
