// Requests to the core service: the two attempts, and how each command reads its reply.
#include <future>
#include <memory>

#include <gtest/gtest.h>

#include "client/fusion.h"
#include "core/bot_commands.h"
#include "core/core_request.h"
#include "core/interface_commands.h"
#include "core/requests.h"
#include "peers/core_service.h"
#include "platform/descriptor.h"
#include "platform/socket.h"
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

std::string fields_of(const interface_info& info) {
    return info.ifname + "," + info.iftype + "," + info.driver_name + "," + info.ssid + "," +
           info.bssid + "," + std::to_string(info.antennas) + "," + std::to_string(info.wiphy);
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
    EXPECT_LT(watch.elapsed(), 2s);
}

TEST_F(core_commands, a_reply_is_one_object_or_an_error) {
    const std::string largest = "{\"a\":\"" + std::string(4088, 'x') + "\"}"; // 4096 bytes
    const struct {
        std::string reply;
        std::string parsed;
    } rows[] = {{" \n{\"a\":1}\r\n\t ", "{\"a\":1}"},
                {"{}", "{}"},
                {largest, largest},
                {"\xEF\xBB\xBF{}", "{}"},
                {std::string("{}\0{}", 5), "{}"},
                {"[{}]", "[{}]"},
                {"true", "true"},
                {"{} x", "null"},
                {"{}{}", "null"},
                {"{/* */}", "null"},
                {"{\"a\":1,}", "null"},
                {"{\"a\":", "null"},
                {largest + " {}", largest}, // cut
                {" " + largest, "null"}};
    captured_output output;
    for (const auto& row : rows) {
        answer(row.reply);
        EXPECT_EQ(json::write(core_request(address, make_request("x"))), row.parsed) << row.reply;
        const replies error = {"Error: " + row.reply.substr(0, 4096)};
        EXPECT_EQ(output.lines(), row.parsed[0] == '{' ? replies{} : error);
    }
    EXPECT_EQ(requests().front().text, R"({"cmd":"x"})");
    EXPECT_EQ(requests().size(), std::size(rows)); // a bad reply is not asked for again
}

// Takes the 2 s that a lost datagram costs: each of the two attempts has this time.
TEST_F(core_commands, each_of_two_attempts_waits_two_seconds) {
    peers::core_service other(journal, "127.0.0.2");
    const auto reply_in_turn = [](peers::core_service& to, const std::vector<replies>& turns) {
        auto asked = std::make_shared<std::size_t>(0);
        to.answer_with([=](const std::string&) { return turns.at((*asked)++); });
    };
    reply_in_turn(service, {{}, {R"({"second":true})"}});
    reply_in_turn(other, {{""}, {}});
    captured_output output;
    const stopwatch watch;
    const auto time_of = [&watch](const char* to, bool is_object) {
        EXPECT_EQ(core_request(to, make_request("x")).IsObject(), is_object) << to;
        return watch.elapsed();
    };
    auto first_lost = std::async(std::launch::async, time_of, address, true);
    const auto empty_then_lost = time_of("127.0.0.2", false);
    for (const auto time : {first_lost.get(), empty_then_lost}) {
        EXPECT_GE(time, 2s);
        EXPECT_LT(time, 3900ms);
    }
    EXPECT_EQ(output.lines(), replies{R"(127.0.0.2: failed to send {"cmd":"x"})"});
    EXPECT_EQ(requests().size(), 2U);
    EXPECT_EQ(journal.count("daemon", "core 127.0.0.2"), 2U);
    EXPECT_EQ(core_request_timeout_ms * core_request_attempts, 4000);
}

TEST_F(core_commands, both_attempts_come_from_one_port) {
    service.stop();
    const descriptor silent(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(bind_address(silent.get(), address, core_service_port));
    EXPECT_EQ(ask(address, core_service_port, "text", {10, 10}), "");
    std::vector<std::uint16_t> ports;
    std::vector<char> buffer(100);
    std::string from;
    for (std::uint16_t port = 0; recv_from(silent.get(), buffer, from, &port) == 4;) {
        ports.push_back(port);
    }
    ASSERT_EQ(ports.size(), 2U);
    EXPECT_EQ(ports[0], ports[1]);
}

TEST_F(core_commands, each_reads_its_reply_or_ends_the_process) {
    struct command {
        std::function<std::string()> call;
        std::string request;
    };
    captured_output output; // of the routing, and of the errors among the replies
    const auto yes_or_no = [](bool success) { return std::string(success ? "yes" : "no"); };
    const command ping{[&] { return yes_or_no(core_ping(address)); }, R"({"ping":null})"};
    const command add{[&] { return yes_or_no(core_add_interface(address, "w")); },
                      R"({"cmd":"add_interface","ifname":"w"})"};
    const command del{[&] { return yes_or_no(core_del_interface(address, "w")); },
                      R"({"cmd":"del_interface","ifname":"w"})"};
    const command list{[] { return joined(core_get_interfaces(address)); },
                       R"({"cmd":"get_interfaces"})"};
    const command save{[&] { return yes_or_no(core_save_csi(address, "/a\"b")); },
                       R"({"cmd":"save_csi","enable":true,"filename":"/a\"b"})"};
    const command active{[] { return joined(core_active_bots(address)); },
                         R"({"cmd":"active_bots"})"};
    const command info{[] { return fields_of(core_interface_info(address, "w")); },
                       R"({"cmd":"info","ifname":"w"})"};
    const std::string dies = "dies";
    const struct {
        const command& of;
        std::string result;
        std::vector<const char*> replies;
    } rows[] = {
        {ping, "yes", {R"({"ping":false})", R"({"ping":null,"success":false})"}},
        {ping, "no", {R"({"success":true})", R"(["ping"])", "{}"}},
        {add, "yes", {R"({"reason":1,"success":true})"}},
        {add, "no", {R"({"success":false})", R"({"ok":true})", "true"}},
        {add, dies, {R"({"success":"yes"})", R"({"success":1})", R"({"success":null})"}},
        {del, "yes", {R"({"success":true})"}},
        {del, "no", {R"({"success":false})", "{}"}},
        {del, dies, {R"({"success":1})"}},
        {list, "b;a;b;", {R"({"interfaces":["b","a","b"]})"}},
        {list, "", {R"({"interfaces":[]})", R"({"success":true})", R"(["interfaces"])"}},
        {list, dies, {R"({"interfaces":{}})", R"({"interfaces":null})", R"({"interfaces":[1]})"}},
        {save, "yes", {R"({"success":true})"}},
        {save,
         "no",
         {R"({"success":false})", R"({"success":1})", R"({"success":"yes"})", "{}", "1"}},
        {info, "w,ap,,,,0,0", {R"({"iftype":"ap"})"}},
        {info,
         "w,,d,s,b,0,-2147483648",
         {R"({"ifname":"x","wiphy":-2147483648,"ssid":"s","bssid":"b","driver_name":"d"})"}},
        {info,
         "w,,,t,,2147483647,0",
         {R"({"SSID":1,"ssid":"s","ssid":"t","antennas":1,"antennas":2147483647,"n":{}})"}},
        {info, "w,,,,,0,0", {"3", "{}"}},
        {info,
         dies,
         {R"({"antennas":4294967295})", R"({"wiphy":2147483648})", R"({"wiphy":1.5})",
          R"({"antennas":"1"})", R"({"ssid":null})", R"({"iftype":1})", R"({"bssid":{}})",
          R"({"driver_name":true})"}},
        {active,
         "c;",
         {R"({"bots":[{"uuid":"b","count":0},{"count":5,"uuid":"c"},{"n":1,"count":3}]})",
          R"({"bots":[{"uuid":"b"},{},{"uuid":"","count":1},{"uuid":"c","count":4294967296}]})",
          R"({"bots":[{"uuid":"a","count":0,"uuid":"c","count":2}]})"}},
        {active,
         "b;a;b;",
         {R"({"bots":[{"uuid":"b","count":18446744073709551615},{"uuid":"a","count":1},{"uuid":"b","count":1}]})"}},
        {active, "", {R"({"bots":[]})", "{}", R"(["bots"])"}},
        {active,
         dies,
         {R"({"bots":{}})", R"({"bots":null})", R"({"bots":["b"]})", R"({"bots":[{"uuid":1}]})",
          R"({"bots":[{"count":-1}]})", R"({"bots":[{"count":1.0}]})",
          R"({"bots":[{"count":"1"}]})"}},
    };
    for (const auto& row : rows) {
        for (const char* const reply : row.replies) {
            answer(reply);
            if (row.result == dies) {
                EXPECT_DEATH(row.of.call(), "JSON assertion failed") << reply;
            } else {
                EXPECT_EQ(row.of.call(), row.result) << reply;
            }
            EXPECT_EQ(requests().back().text, row.of.request);
        }
    }
}

TEST_F(core_commands, all_interfaces_of_a_zorvin_are_added_in_order) {
    zorvin_entry zorvin(address);
    zorvin.interfaces = {"b", "a"};
    answer(R"({"success":false})");
    add_interfaces(zorvin);
    ASSERT_EQ(requests().size(), 2U);
    EXPECT_EQ(requests()[0].text, R"({"cmd":"add_interface","ifname":"b"})");
    EXPECT_EQ(requests()[1].text, R"({"cmd":"add_interface","ifname":"a"})");
}

TEST_F(core_commands, sounding_for_the_server_sets_the_flag_before_it_asks) {
    captured_output output;
    routing_table table;
    table.add_routing("7:127.0.0.1:wlan0:0A0000000001");
    bot_record& bot = table.bots().front();
    std::string reply = R"({"success":true})";
    std::vector<bool> flags;
    service.answer_with([&](const std::string&) {
        flags.push_back(bot.sounding);
        return replies{reply};
    });
    const std::string asked =
        R"({"cmd":"sounding","ifname":"wlan0","uuid":"7","hwaddr":"0a:00:00:00:00:01","quiet":)";
    for (const bool success : {true, false}) {
        EXPECT_EQ(start_sounding(bot, 4294967295U), success);
        EXPECT_EQ(requests().back().text, asked + R"(false,"rate":4294967295})");
        EXPECT_TRUE(bot.sounding);
        EXPECT_EQ(stop_sounding(bot), success);
        EXPECT_EQ(requests().back().text, asked + R"(false,"rate":0})");
        EXPECT_FALSE(bot.sounding) << "the flag follows the wish, not the answer";
        EXPECT_EQ(core_sounding(bot.zorvin, bot, 7, true), success);
        EXPECT_EQ(requests().back().text, asked + R"(true,"rate":7})");
        reply = success ? R"({"success":false})" : "no object";
    }
    EXPECT_EQ(flags, (std::vector<bool>{true, false, false, true, false, false}));
    answer(R"({"success":"yes"})");
    EXPECT_DEATH(core_sounding(bot.zorvin, bot, 7, true), "JSON assertion failed");
}
