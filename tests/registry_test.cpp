// The routing table, the identifier passes and the JSON helpers: pure logic.
#include <gtest/gtest.h>

#include "client/identifiers.h"
#include "client/routing.h"
#include "platform/json.h"
#include "support/fixtures.h"

using namespace csi_receiver;

TEST(routing, items) {
    const struct {
        const char* routing;
        std::vector<std::string> added; // as they are logged
    } rows[] = {
        {"0x1A:10.0.0.2:wlan0:A0B1C2D3E4F5",
         {"26 at zorvin 10.0.0.2 on interface wlan0 hwaddr a0:b1:c2:d3:e4:f5"}},
        {"0X1A:h:w:a0b1c2d3e4f5", {"0X1A at zorvin h on interface w hwaddr a0:b1:c2:d3:e4:f5"}},
        {"b1:h:w:zzzzzzzzzzzz", {"b1 at zorvin h on interface w hwaddr zz:zz:zz:zz:zz:zz"}},
        {",,1::h:w:a0b1c2d3e4f5:,", {"1 at zorvin h on interface w hwaddr a0:b1:c2:d3:e4:f5"}},
        {"b1:h:w:a0b1c2d3e4f", {}},
        {"b1:h:w:a0b1c2d3e4f5a", {}},
        {"b1:h:a0b1c2d3e4f5", {}},
        {"b1::w:a0b1c2d3e4f5", {}},
        {"b1:h:w:x:a0b1c2d3e4f5", {}},
        {"", {}},
    };
    for (const auto& row : rows) {
        captured_output output;
        routing_table table;
        table.add_routing(row.routing);
        std::vector<std::string> lines = output.lines();
        ASSERT_EQ(lines.size(), row.added.size()) << row.routing;
        for (std::size_t at = 0; at < lines.size(); ++at) {
            EXPECT_EQ(lines[at], "Add bot uuid " + row.added[at]);
        }
    }
}

TEST(routing, zorvins_interfaces_and_lookups) {
    captured_output output;
    routing_table table;
    table.add_routing("1:10.0.0.2:wlan1:000000000001,2:10.0.0.3:wlan0:000000000002,"
                      "0x1:10.0.0.2:wlan0:000000000003,4:10.0.0.2:wlan1:000000000001");
    ASSERT_EQ(table.zorvins().size(), 2U);
    EXPECT_EQ(table.zorvins()[0].interfaces, (std::vector<std::string>{"wlan1", "wlan0"}));
    ASSERT_EQ(table.bots().size(), 4U);
    EXPECT_EQ(&table.bots()[2].zorvin, &table.zorvins()[0]);
    EXPECT_EQ(table.find_bot_by_uuid("1") - table.bots().begin(), 0); // routed twice: the first
    EXPECT_EQ(table.find_bot_by_hwaddr("00:00:00:00:00:01") - table.bots().begin(), 0);
    EXPECT_EQ(table.find_bot_by_uuid("0x1"), table.bots().end());
}

TEST(identifiers, both_passes) {
    const struct {
        const char* received;
        const char* read;
        const char* written;
    } rows[] = {
        {R"({"bot":42,"zorvin":0,"uuid":18446744073709551615,"engine":4294967296,"service":1})",
         R"({"bot":"42","zorvin":"0","uuid":"18446744073709551615","engine":"4294967296","service":"1"})",
         R"({"bot":42,"zorvin":0,"uuid":18446744073709551615,"engine":4294967296,"service":1})"},
        {R"({"bots":[1,"7",{"uuid":3},[5],-1]})", R"({"bots":["1","7",{"uuid":"3"},[5],-1]})",
         R"({"bots":[1,7,{"uuid":3},[5],-1]})"},
        {R"({"bots":5})", R"({"bots":"5"})", R"({"bots":"5"})"},
        {R"({"uuid":-5,"bot":2.5,"engine":true,"zorvin":null})",
         R"({"uuid":-5,"bot":2.5,"engine":true,"zorvin":null})",
         R"({"uuid":-5,"bot":2.5,"engine":true,"zorvin":null})"},
        {R"({"x":{"bot":1,"y":[{"bot":2,"n":3}]},"n":4,"z":[5,"6"]})",
         R"({"x":{"bot":"1","y":[{"bot":"2","n":3}]},"n":4,"z":[5,"6"]})",
         R"({"x":{"bot":1,"y":[{"bot":2,"n":3}]},"n":4,"z":[5,"6"]})"},
        {R"({"zorvin":"name","bot":"12ab","uuid":"99999999999999999999","engine":"","service":"-1"})",
         R"({"zorvin":"name","bot":"12ab","uuid":"99999999999999999999","engine":"","service":"-1"})",
         R"({"zorvin":0,"bot":12,"uuid":18446744073709551615,"engine":0,"service":0})"},
        {R"({"engineType":"cpd","ifname":"7","Bot":8})",
         R"({"engineType":"cpd","ifname":"7","Bot":8})",
         R"({"engineType":"cpd","ifname":"7","Bot":8})"},
    };
    for (const auto& row : rows) {
        json::document message = json::parse(row.received);
        ASSERT_TRUE(message.IsObject()) << row.received;
        identifiers_to_text(message, message.GetAllocator());
        EXPECT_EQ(json::write(message), row.read);
        identifiers_to_numbers(message);
        EXPECT_EQ(json::write(message), row.written);
    }
}

TEST(json, parses_what_it_can_and_survives_the_rest) {
    const auto nested = [](int depth) {
        const auto count = static_cast<std::size_t>(depth);
        return std::string(count, '[') + std::string(count, ']');
    };
    EXPECT_TRUE(json::parse(nested(json::max_depth)).IsArray());
    EXPECT_TRUE(json::parse(nested(json::max_depth + 1)).IsNull());
    EXPECT_TRUE(json::parse(nested(1000000)).IsNull());
    EXPECT_TRUE(json::parse(" \n{\"a\":\"[[\\\"[\"}\t ").IsObject());
    for (const char* text : {"", "{", "{}x", "{\"a\":1,}", "nul", "1e999", "\"\\"}) {
        EXPECT_TRUE(json::parse(text).IsNull()) << text;
    }
    json::document message = json::parse(R"({"a":1,"b":2,"big":2147483648})");
    json::set(message, "a", "x", message.GetAllocator());
    json::set(message, "c", "y", message.GetAllocator());
    EXPECT_EQ(json::write(message), R"({"a":"x","b":2,"big":2147483648,"c":"y"})");
    EXPECT_LE(message.GetAllocator().Capacity(), 4096U);
    EXPECT_EQ(json::find_int(message, "b"), 2);
    EXPECT_FALSE(json::find_int(message, "big"));
    EXPECT_FALSE(json::find_string(message, "b"));
    EXPECT_DEATH(static_cast<void>(json::find(message, "b")->GetBool()), "JSON assertion failed");
}
