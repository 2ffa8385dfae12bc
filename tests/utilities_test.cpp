// The small functions, and the derivation of keys.
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/key_derivation.h"
#include "platform/utilities.h"
#include "support/fixtures.h"

using namespace csi_receiver;

TEST(utilities, text_functions) {
    const struct {
        const char* id;
        const char* decimal;
    } ids[] = {{"0x10", "16"},
               {"16", "16"},
               {"0X10", "0X10"},
               {"x10", "x10"},
               {"0xZZ", "0"},
               {"0x", "0"},
               {"0xffffffffffffffff", "18446744073709551615"},
               {"0x1Ag", "26"},
               {"", ""}};
    for (const auto& row : ids) {
        std::string id = row.id;
        hex_id_to_decimal(id);
        EXPECT_EQ(id, row.decimal) << row.id;
    }
    EXPECT_EQ(split(",a,,b,", ','), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(split("", ',').empty());
    EXPECT_EQ(mac_to_string({0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F}), "0a:0b:0c:0d:0e:0f");
    EXPECT_EQ(id_to_mac(0x00020A0B0C0D0E0FU), "0a:0b:0c:0d:0e:0f");
    EXPECT_EQ(id_to_mac(0), "00:00:00:00:00:00");
    EXPECT_EQ(run_command("printf '  one\\n two\\n'"), "one two");
    EXPECT_EQ(run_command("printf 'a\\nb\\n'"), "ab");
    EXPECT_EQ(run_command("/no/such/command 2>&1 | tail -c 0"), "");
    // The passphrase is fixed, so the key of a network name is too; made with another program.
    EXPECT_EQ(derive_psk("csi-lab"),
              "75b9a9cf24d4ed37605f0cc01bdfe67b70a7eb98695a0b13e0b7bdd377c72296");
}

TEST(utilities, time_zone_from_the_tool_or_the_default) {
    captured_output output;
    EXPECT_EQ(apply_time_zone("/no/such/tool").size(), 3U);
    EXPECT_STREQ(getenv("TZ"), "EST5EDT");
    EXPECT_EQ(output.lines().back(), "[Utilit]: Time zone is EST5EDT");

    temporary_directory directory;
    const std::string tool = directory.write("tool", "#!/bin/sh\necho noise\necho \"$2,x/$1\"\n");
    chmod(tool.c_str(), 0755);
    EXPECT_EQ(get_time_zone(tool), (std::vector<std::string>{"TZ", "x/get"}));
}
