// Requests to the core service: the two attempts, and how each command reads its reply.
#include <future>

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
#include "support/vectors.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

namespace {

constexpr const char* address = "127.0.0.1";

struct core_commands : testing::Test {
    void answer(const std::string& text) {
        service.answer_with([text](const std::string&) { return texts{text}; });
    }
    /// The requests since the last call.
    [[nodiscard]] texts heard() {
        texts result;
        for (const peers::message& message : journal.select("daemon", "core 127.0.0.1")) {
            result.push_back(message.text);
        }
        journal.clear();
        return result;
    }

    peers::journal journal;
    peers::core_service service{journal, address};
    captured_output output;
};

std::string to_text(bool value) {
    return value ? "true" : "false";
}

std::string to_text(const texts& list) {
    std::string result;
    for (const std::string& text : list) {
        result += text + ";";
    }
    return result;
}

std::string to_text(const interface_info& info) {
    return info.ifname + "," + info.iftype + "," + info.driver_name + "," + info.ssid + "," +
           info.bssid + "," + std::to_string(info.antennas) + "," + std::to_string(info.wiphy);
}

} // namespace

TEST(core_request, failures_and_their_lines) {
    const stopwatch watch;
    captured_output output;
    const json::document request = make_request("x");
    EXPECT_TRUE(core_request("no address", request).IsNull());
    EXPECT_EQ(output.lines(), texts{});
    EXPECT_TRUE(core_request(address, request).IsNull()); // nobody listens: refused, twice
    EXPECT_EQ(output.lines(), texts{R"(127.0.0.1: failed to send {"cmd":"x"})"});
    EXPECT_TRUE(fusion_request(request).IsNull());
    EXPECT_EQ(output.lines(), (texts{R"(failed to send to zorvin-fusion {"cmd":"x"})",
                                     "fusion service request failed!"}));
    EXPECT_LT(watch.elapsed(), 2s);
}

TEST_F(core_commands, a_reply_is_one_object_or_an_error) {
    const std::string largest = "{\"a\":\"" + std::string(4088, 'x') + "\"}"; // 4096 bytes
    const std::pair<std::string, std::string> rows[] = {{" \n{\"a\":1}\r\n\t ", "{\"a\":1}"},
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
    for (const auto& [reply, parsed] : rows) {
        answer(reply);
        EXPECT_EQ(json::write(core_request(address, make_request("x"))), parsed) << reply;
        const texts error = {"Error: " + reply.substr(0, 4096)};
        EXPECT_EQ(output.lines(), parsed[0] == '{' ? texts{} : error);
        EXPECT_EQ(heard(), texts{R"({"cmd":"x"})"}); // a bad reply is not asked for again
    }
}

// Takes the 2 s that a lost datagram costs: each of the two attempts has this time.
TEST_F(core_commands, each_of_two_attempts_waits_two_seconds) {
    peers::core_service other(journal, "127.0.0.2");
    std::atomic<int> asked{0};
    std::atomic<int> other_asked{0};
    service.answer_with(
        [&](const auto&) { return ++asked == 1 ? texts{} : texts{R"({"second":true})"}; });
    other.answer_with([&](const auto&) { return ++other_asked == 1 ? texts{""} : texts{}; });
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
    EXPECT_EQ(output.lines(), texts{R"(127.0.0.2: failed to send {"cmd":"x"})"});
    EXPECT_EQ(asked + other_asked, 4);
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
    const std::map<std::string, std::function<std::string()>> calls = {
        {R"({"ping":null})", [] { return to_text(core_ping(address)); }},
        {R"({"cmd":"add_interface","ifname":"w"})",
         [] { return to_text(core_add_interface(address, "w")); }},
        {R"({"cmd":"del_interface","ifname":"w"})",
         [] { return to_text(core_del_interface(address, "w")); }},
        {R"({"cmd":"get_interfaces"})", [] { return to_text(core_get_interfaces(address)); }},
        {R"({"cmd":"save_csi","enable":true,"filename":"/a\"b"})",
         [] { return to_text(core_save_csi(address, "/a\"b")); }},
        {R"({"cmd":"active_bots"})", [] { return to_text(core_active_bots(address)); }},
        {R"({"cmd":"info","ifname":"w"})",
         [] { return to_text(core_interface_info(address, "w")); }},
    };
    for_each_case("core/replies", [&](const json::value& one) {
        const std::string request = wire_text(one["request"]);
        const std::string result = wire_text(one["result"]);
        for_each(one, "replies", [&](const json::value& reply) {
            answer(wire_text(reply));
            if (result == "dies") {
                EXPECT_DEATH(calls.at(request)(), "broke its protocol.*JSON assertion failed")
                    << wire_text(reply);
            } else {
                EXPECT_EQ(calls.at(request)(), result) << wire_text(reply);
            }
            EXPECT_EQ(heard(), texts{request});
        });
    });
}

TEST_F(core_commands, all_interfaces_of_a_zorvin_are_added_in_order) {
    zorvin_entry zorvin(address);
    zorvin.interfaces = {"b", "a"};
    answer(R"({"success":false})");
    add_interfaces(zorvin);
    EXPECT_EQ(heard(), (texts{R"({"cmd":"add_interface","ifname":"b"})",
                              R"({"cmd":"add_interface","ifname":"a"})"}));
}

TEST_F(core_commands, sounding_for_the_server_sets_the_flag_before_it_asks) {
    routing_table table;
    table.add_routing("7:127.0.0.1:wlan0:0A0000000001");
    bot_record& bot = table.bots().front();
    std::string reply = R"({"success":true})";
    std::vector<bool> flags;
    service.answer_with([&](const std::string&) {
        flags.push_back(bot.sounding);
        return texts{reply};
    });
    const std::string asked =
        R"({"cmd":"sounding","ifname":"wlan0","uuid":"7","hwaddr":"0a:00:00:00:00:01","quiet":)";
    for (const bool success : {true, false}) {
        EXPECT_EQ(start_sounding(bot, 4294967295U), success);
        EXPECT_TRUE(bot.sounding);
        EXPECT_EQ(stop_sounding(bot), success);
        EXPECT_FALSE(bot.sounding) << "the flag follows the wish, not the answer";
        EXPECT_EQ(core_sounding(bot.zorvin, bot, 7, true), success);
        EXPECT_EQ(heard(), (texts{asked + R"(false,"rate":4294967295})",
                                  asked + R"(false,"rate":0})", asked + R"(true,"rate":7})"}));
        reply = success ? R"({"success":false})" : "no object";
    }
    EXPECT_EQ(flags, (std::vector<bool>{true, false, false, true, false, false}));
    answer(R"({"success":"yes"})");
    EXPECT_DEATH(core_sounding(bot.zorvin, bot, 7, true),
                 R"(core service [0-9.]+ broke its protocol: it answered [{]"cmd":.*,"rate":7[}] )"
                 "with [{]\"success\":\"yes\"[}]\n.*JSON assertion failed");
}
