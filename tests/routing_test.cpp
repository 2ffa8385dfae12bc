// The routing table: which items it takes, and what it makes of them.
#include <gtest/gtest.h>

#include "client/routing.h"
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
        {"0x:h:w:a0b1c2d3e4f5", {"0 at zorvin h on interface w hwaddr a0:b1:c2:d3:e4:f5"}},
        {"0x1Ag:h:w:a0b1c2d3e4f5,2:H: w:A0B1C2D3E4F5",
         {"26 at zorvin h on interface w hwaddr a0:b1:c2:d3:e4:f5",
          "2 at zorvin H on interface  w hwaddr a0:b1:c2:d3:e4:f5"}},
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
    table.add_routing("1:10.0.0.2:wlan1:00000000000A,2:10.0.0.3:wlan0:000000000002,"
                      "0x1:10.0.0.2:wlan0:000000000003,4:10.0.0.2:wlan1:00000000000A");
    ASSERT_EQ(table.zorvins().size(), 2U);
    EXPECT_EQ(table.zorvins()[0].address, "10.0.0.2");
    EXPECT_EQ(table.zorvins()[0].interfaces, (std::vector<std::string>{"wlan1", "wlan0"}));
    EXPECT_EQ(table.zorvins()[1].interfaces, std::vector<std::string>{"wlan0"});
    ASSERT_EQ(table.bots().size(), 4U);
    EXPECT_EQ(&table.bots()[2].zorvin, &table.zorvins()[0]);
    EXPECT_EQ(table.find_bot_by_uuid("1") - table.bots().begin(), 0); // routed twice: the first
    EXPECT_EQ(table.find_bot_by_hwaddr("00:00:00:00:00:0a") - table.bots().begin(), 0);
    EXPECT_EQ(table.find_bot_by_hwaddr("00:00:00:00:00:0A"), table.bots().end());
    EXPECT_EQ(table.find_bot_by_uuid("0x1"), table.bots().end());
}
