// The messages that are sent unasked, byte for byte, from given values.
#include <gtest/gtest.h>

#include "client/messages.h"

using namespace csi_receiver;

namespace {

const zorvin_entry zorvin("10.0.0.2");
const bot_record first("0a:00:00:00:01:01", "101", "wlan0", zorvin);
const bot_record large("0a:00:00:00:01:02", "18446744073709551615", "wlan1", zorvin);

const zorvin_identity v2{"9001", false};
const zorvin_identity v3{"9001", true};

} // namespace

TEST(messages, attach) {
    const std::string support =
        R"("localCalculationSupport":{"motion2":1,"breathing2":1,"guard":1)";
    EXPECT_EQ(build_attach(v2, {"qcawifi", "net", 4}, {}, "v9", false),
              R"({"type":"zorvin","driver":"ath10k","zorvin":9001,"ssid":"net","join":true,)"
              R"("chains":4,"bot_info":[],"version":"v9",)" +
                  support + "}}");
    EXPECT_EQ(build_attach(v3, {"ath9k", "a\"b", -1}, {&large}, "", true),
              R"({"type":"zorvin","driver":"ath9k","request":"zorvinAttach","zorvin":9001,)"
              R"("ssid":"a\"b","join":true,"chains":-1,"bot_info":[{"bot":18446744073709551615,)"
              R"("hwaddr":"0a:00:00:00:01:02","chains":1}],"version":"",)" +
                  support + R"(,"cpd":1,"softSecurity":1}})");
}

TEST(messages, status_and_scan_report) {
    const std::string info = R"("bot_info":[{"bot":101,"hwaddr":"0a:00:00:00:01:01","chains":1}]})";
    EXPECT_EQ(build_status(v2, {&first}), "{" + info);
    EXPECT_EQ(build_status(v3, {&first}), R"({"request":"zorvinMsg","zorvin":9001,)" + info);
    const std::string end = R"("success":true,"reason":"complete","found":[)";
    EXPECT_EQ(build_scan_report(v2, {"102", "x", "101"}),
              R"({"cmd":"scan","zorvin":9001,"uuid":9001,)" + end + "102,0,101]}");
    EXPECT_EQ(build_scan_report(v3, {}),
              R"({"cmd":"scan","zorvin":9001,"request":"zorvinMsg",)" + end + "]}");
}
