// The small functions.
#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/utilities.h"
#include "support/fixtures.h"

using namespace csi_receiver;

TEST(utilities, identifiers_and_numbers) {
    for (const auto& [text, decimal] :
         {std::pair("0x10", "16"), std::pair("16", "16"), std::pair("0X10", "0X10"),
          std::pair("x10", "x10"), std::pair("0xZZ", "0"), std::pair("0x", "0"),
          std::pair("0xffffffffffffffff", "18446744073709551615"), std::pair("0x1Ag", "26"),
          std::pair("", "")}) {
        std::string id = text;
        hex_id_to_decimal(id);
        EXPECT_EQ(id, decimal) << text;
    }
    for (const auto& [text, number] :
         {std::pair("8090x", 8090UL), std::pair("", 0UL), std::pair("-1", 0UL),
          std::pair(" 1", 0UL), std::pair("0x10", 0UL), std::pair("007", 7UL)}) {
        EXPECT_EQ(parse_decimal(text), number) << text;
    }
    EXPECT_EQ(parse_decimal("18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(parse_decimal("18446744073709551616"), UINT64_MAX) << "the largest that there is";
    EXPECT_EQ(mac_to_string({0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F}), "0a:0b:0c:0d:0e:0f");
    EXPECT_EQ(id_to_mac(0xFFF20A0B0C0D0E0FU), "0a:0b:0c:0d:0e:0f");
    EXPECT_EQ(id_to_mac(0), "00:00:00:00:00:00");
}

TEST(utilities, split_drops_empty_fields) {
    EXPECT_EQ(split(",a,, b,", ','), (texts{"a", " b"}));
    EXPECT_EQ(split("a,b:c", ':'), (texts{"a,b", "c"}));
    EXPECT_TRUE(split("", ',').empty());
}

TEST(utilities, run_command_joins_lines_and_trims) {
    EXPECT_EQ(run_command("printf '  one\\n two\\n'"), "one two");
    EXPECT_EQ(run_command("printf 'a \\n\\nb \\t\\r\\f\\v\\n'"), "ab");
    // It reads 1023 characters at a time and trims after each: a blank at the end of these is lost.
    EXPECT_EQ(run_command("printf '%01022d b c' 0"), std::string(1022, '0') + "b c");
    EXPECT_EQ(run_command("/no/such/command 2>&1 | tail -c 0"), "");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a command was left behind";
    const stopwatch watch;
    EXPECT_EQ(run_command("yes | head -n 700000").size(), 700000U);
    EXPECT_LT(watch.elapsed(), std::chrono::seconds(10)) << "not in proportion to the output";
}

TEST(utilities, default_time_zone) {
    captured_output output;
    setenv("TZ", "UTC0", 1);
    tzset();
    EXPECT_EQ(apply_time_zone("/no/such/tool"),
              (texts{"EST5EDT", "M3.2.0/02:00", "M11.1.0/02:00"}));
    EXPECT_STREQ(getenv("TZ"), "EST5EDT");
    EXPECT_EQ(timezone, 5 * 3600) << "as the C library knows it";
    EXPECT_EQ(output.lines(),
              (texts{"[Utilit]: plain os get time", "[Utilit]: Time zone is EST5EDT"}));
    EXPECT_STREQ(time_zone_tool, "/sbin/syscfg");
}

TEST(utilities, time_zone_from_the_tool) {
    const std::string zeros(99, '0');
    const std::tuple<std::string, texts, texts> rows[] = {
        {"echo noise,x\necho \"$2,x/$1\"\n", {"noise,x", "TZ,x/get"}, {"TZ", "x/get"}},
        {"printf '%099dA,B\\n' 0\n", {zeros + "A,B"}, {"A", "B"}}, // the second piece
        {"", {}, {}},
    };
    const auto open_files = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    for (const auto& [script, printed, fields] : rows) {
        temporary_directory directory;
        captured_output output;
        const std::string tool = directory.write("tool", "#!/bin/sh\n" + script);
        chmod(tool.c_str(), 0755);
        const auto before = open_files();
        EXPECT_EQ(get_time_zone(tool), fields);
        EXPECT_EQ(open_files(), before + 1) << "the stream stays open";
        texts expected = printed;
        expected.push_back("[Utilit]: router os get time " +
                           (fields.empty() ? "" : fields.front()));
        EXPECT_EQ(output.lines(), expected);
    }
}
