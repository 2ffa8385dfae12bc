// The two passes over identifiers.
#include <gtest/gtest.h>

#include "client/identifiers.h"

using namespace csi_receiver;

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
        {R"({"uuid":[1,"2",{"bot":3}],"list":{"bots":[4,[5],{"service":6}]},"bot":7,"bot":8})",
         R"({"uuid":[1,"2",{"bot":"3"}],"list":{"bots":["4",[5],{"service":"6"}]},"bot":"7","bot":"8"})",
         R"({"uuid":[1,"2",{"bot":3}],"list":{"bots":[4,[5],{"service":6}]},"bot":7,"bot":8})"},
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
