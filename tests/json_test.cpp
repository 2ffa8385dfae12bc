// The JSON helpers: what they parse, refuse and write.
#include <gtest/gtest.h>

#include "platform/json.h"

TEST(json, parses_what_it_can_and_survives_the_rest) {
    const auto parses = [](int depth, const char* open, const char* close) {
        std::string text;
        for (int level = 0; level < 2 * depth; ++level) {
            text += level < depth ? open : level == depth ? std::string("0") + close : close;
        }
        return !json::parse(text).IsNull();
    };
    EXPECT_TRUE(parses(json::max_depth, "[", "]"));
    EXPECT_FALSE(parses(json::max_depth + 1, "[", "]"));
    EXPECT_TRUE(parses(json::max_depth, R"({"a":)", "}"));
    EXPECT_FALSE(parses(json::max_depth + 1, R"({"a":)", "}"));
    EXPECT_TRUE(parses(json::max_depth / 2 - 1, R"([{"b":[{}],"a":)", "}]"))
        << "neighbours add nothing";
    EXPECT_FALSE(parses(json::max_depth / 2 + 1, R"([{"a":)", "}]"));
    EXPECT_FALSE(parses(1000000, "[", "]"));
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
