// Requests to the core service: the two attempts, and how each command reads its reply.
#include <atomic>

#include <gtest/gtest.h>

#include "client/fusion.h"
#include "core/bot_commands.h"
#include "core/core_request.h"
#include "core/interface_commands.h"
#include "core/requests.h"
#include "peers/core_service.h"
#include "support/fixtures.h"

using namespace csi_receiver;
using namespace std::chrono_literals;
using replies = std::vector<std::string>;

namespace {

constexpr const char* address = "127.0.0.1";

struct core_commands : testing::Test {
    void answer(const std::string& text) {
        service.answer_with([text](const std::string&) { return replies{text}; });
    }
    [[nodiscard]] std::vector<peers::message> requests() const {
        return journal.select("daemon", std::string("core ") + address);
    }

    peers::journal journal;
    peers::core_service service{journal, address};
};

std::string joined(const replies& texts) {
    std::string result;
    for (const std::string& text : texts) {
        result += text + ";";
    }
    return result;
}

} // namespace

TEST(core_request, failures_and_their_lines) {
    const stopwatch watch;
    captured_output output;
    const json::document request = make_request("x");
    EXPECT_TRUE(core_request("no address", request).IsNull());
    EXPECT_EQ(output.lines(), replies{});
    EXPECT_TRUE(core_request(address, request).IsNull()); // nobody listens: refused, twice
    EXPECT_EQ(output.lines(), replies{R"(127.0.0.1: failed to send {"cmd":"x"})"});
    EXPECT_TRUE(fusion_request(request).IsNull());
    EXPECT_EQ(output.lines(), (replies{R"(failed to send to zorvin-fusion {"cmd":"x"})",
                                       "fusion service request failed!"}));
    EXPECT_LT(watch.elapsed(), 1s);
}

TEST_F(core_commands, a_reply_is_one_object_or_an_error) {
    const struct {
        const char* reply;
        bool is_object;
    } rows[] = {{" \n{\"a\":1}\r\n ", true},
                {"{}", true},
                {"[{}]", false},
                {"true", false},
                {"{} x", false},
                {"{\"a\":", false}};
    captured_output output;
    for (const auto& row : rows) {
        answer(row.reply);
        EXPECT_EQ(core_request(address, make_request("x")).IsObject(), row.is_object) << row.reply;
        const replies error = {std::string("Error: ") + row.reply};
        EXPECT_EQ(joined(output.lines()), row.is_object ? "" : joined(error));
    }
    answer("{\"a\":\"" + std::string(5000, 'x') + "\"}");
    EXPECT_FALSE(core_request(address, make_request("x")).IsObject());
    EXPECT_EQ(requests().front().text, R"({"cmd":"x"})");
    EXPECT_EQ(requests().size(), std::size(rows) + 1); // a bad reply is not asked for again
}

TEST_F(core_commands, asks_twice_and_no_more) {
    captured_output output;
    std::atomic<int> asked{0};
    service.answer_with([&asked](const std::string&) {
        return ++asked == 2 ? replies{R"({"second":true})"} : replies{};
    });
    stopwatch watch;
    EXPECT_TRUE(core_request(address, make_request("x")).HasMember("second"));
    EXPECT_GE(watch.elapsed(), 2s);
    EXPECT_LT(watch.elapsed(), 3s);
    EXPECT_EQ(output.lines(), replies{});
    EXPECT_TRUE(core_request(address, make_request("x")).IsNull());
    EXPECT_EQ(asked, 4);
    EXPECT_GE(watch.elapsed(), 6s);
    EXPECT_LT(watch.elapsed(), 7s);
    EXPECT_EQ(output.lines().size(), 1U);
}

TEST_F(core_commands, requests_and_results) {
    captured_output output; // of the routing, and of the errors among the replies
    routing_table table;
    table.add_routing("7:127.0.0.1:wlan0:0A0000000001");
    bot_record& bot = table.bots().front();
    const auto info = [] {
        const interface_info facts = core_interface_info(address, "wlan0");
        return facts.ifname + "," + facts.iftype + "," + facts.driver_name + "," + facts.ssid +
               "," + facts.bssid + "," + std::to_string(facts.antennas) + "," +
               std::to_string(facts.wiphy);
    };
    const auto told = [](bool success) { return std::string(success ? "yes" : "no"); };
    const auto add = [&] { return told(core_add_interface(address, "wlan0")); };
    const auto active = [] { return joined(core_active_bots(address)); };
    const std::string add_request = R"({"cmd":"add_interface","ifname":"wlan0"})";
    const std::string sounding_request =
        R"({"cmd":"sounding","ifname":"wlan0","uuid":"7","hwaddr":"0a:00:00:00:00:01",)";
    const struct {
        std::function<std::string()> call;
        std::string request;
        const char* reply;
        const char* result;
    } rows[] = {
        {[&] { return told(core_ping(address)); }, R"({"ping":null})", R"({"ping":false})", "yes"},
        {[&] { return told(core_ping(address)); }, R"({"ping":null})", "{}", "no"},
        {[&] { return told(core_ping(address)); }, R"({"ping":null})", R"(["ping"])", "no"},
        {add, add_request, R"({"success":true})", "yes"},
        {add, add_request, R"({"success":false})", "no"},
        {add, add_request, R"({"ok":1})", "no"},
        {[&] { return told(core_del_interface(address, "wlan0")); },
         R"({"cmd":"del_interface","ifname":"wlan0"})", R"({"success":true})", "yes"},
        {[] { return joined(core_get_interfaces(address)); }, R"({"cmd":"get_interfaces"})",
         R"({"interfaces":["b","a"]})", "b;a;"},
        {[] { return joined(core_get_interfaces(address)); }, R"({"cmd":"get_interfaces"})",
         R"({"success":true})", ""},
        {info, R"({"cmd":"info","ifname":"wlan0"})", R"({"iftype":"ap"})", "wlan0,ap,,,,0,0"},
        {info, R"({"cmd":"info","ifname":"wlan0"})",
         R"({"ifname":"x","wiphy":-1,"ssid":"s","bssid":"b","driver_name":"d","antennas":3,"n":{}})",
         "wlan0,,d,s,b,3,-1"},
        {info, R"({"cmd":"info","ifname":"wlan0"})", "3", "wlan0,,,,,0,0"},
        {active, R"({"cmd":"active_bots"})",
         R"({"bots":[{"uuid":"b1","count":0},{"count":5,"uuid":"b2"},{"count":3},{"uuid":"b3"},{},{"uuid":"b2","count":4294967296}]})",
         "b2;b2;"},
        {active, R"({"cmd":"active_bots"})", "{}", ""},
        {[&] { return told(start_sounding(bot, 4294967295U)); },
         sounding_request + R"("quiet":false,"rate":4294967295})", R"({"success":true})", "yes"},
        {[&] { return told(core_sounding(bot.zorvin, bot, 0, true)); },
         sounding_request + R"("quiet":true,"rate":0})", R"({"success":false})", "no"},
    };
    for (const auto& row : rows) {
        answer(row.reply);
        EXPECT_EQ(row.call(), row.result) << row.reply;
        EXPECT_EQ(requests().back().text, row.request);
    }
    EXPECT_TRUE(bot.sounding);
    answer("no object");
    EXPECT_FALSE(stop_sounding(bot));
    EXPECT_EQ(requests().back().text, sounding_request + R"("quiet":false,"rate":0})");
    EXPECT_FALSE(bot.sounding) << "the flag follows the wish, not the answer";
}

TEST_F(core_commands, wrong_types_end_the_process) {
    const auto active = [] { static_cast<void>(core_active_bots(address)); };
    const auto info = [] { static_cast<void>(core_interface_info(address, "w")); };
    const auto add = [] { core_add_interface(address, "w"); };
    const auto list = [] { static_cast<void>(core_get_interfaces(address)); };
    const struct {
        std::function<void()> call;
        const char* reply;
    } rows[] = {
        {add, R"({"success":"yes"})"},
        {add, R"({"success":1})"},
        {list, R"({"interfaces":{}})"},
        {list, R"({"interfaces":[1]})"},
        {info, R"({"antennas":4294967295})"},
        {info, R"({"ssid":null})"},
        {active, R"({"bots":[{"uuid":"b1","count":-1}]})"},
        {active, R"({"bots":["b1"]})"},
        {active, R"({"bots":[{"uuid":1}]})"},
    };
    for (const auto& row : rows) {
        answer(row.reply);
        EXPECT_DEATH(row.call(), "JSON assertion failed") << row.reply;
    }
}
