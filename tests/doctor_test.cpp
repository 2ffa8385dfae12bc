// csi_doctor: what it reports about broken configurations, replies and peers.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "doctor/core_checks.h"
#include "doctor/core_replies.h"
#include "doctor/log_checks.h"
#include "doctor/network_checks.h"
#include "doctor/routing_checks.h"
#include "doctor/udp_sockets.h"
#include "doctor/value_checks.h"
#include "peers/installation.h"
#include "support/fixtures.h"

using namespace csi_doctor;

static settings check(const std::string& text, report& findings) {
    settings config = check_syntax(text, findings);
    check_values(config, findings);
    check_routing(config, findings);
    return config;
}

static void expect_finding(const report& found, int status, const std::string& words) {
    const auto says = [&](const finding& one) {
        return to_line(one, false).find(words) != std::string::npos;
    };
    EXPECT_TRUE(std::any_of(found.all().begin(), found.all().end(), says)) << words;
    EXPECT_EQ(found.exit_status(), status) << words << to_json(found.all());
}

TEST(doctor, configurations) {
    const std::string bot = "routing=101:127.0.0.1:wlan0:020000000065";
    const struct {
        std::string lines; // the other required keys are added
        int status;
        const char* words;
    } rows[] = {
        {"api=v3\n#api=v4\n  # none\nlog=no # here", 0, "ok    line 4 (log): the value is \"no\""},
        {"server", 1, "line 1: ignored: there is no \"=\" in \"server\""},
        {"fusion=#yes", 1, "(fusion): ignored: the value is empty (a # ends it)"},
        {"api=v2\napi=", 1, "line 1 stays in effect"},
        {"api=v2\napi=v3", 1, "warn  line 2 (api): overrides line 1"},
        {"sever=a", 1, "write server if that is what you meant"},
        {"logfile=a", 1, "write log_path if"},
        {"log_pth=a", 1, "write log_path if"},
        {"logging=a", 1, "write log if"},
        {"export zorvin_uuid=1", 1, "write zorvin_uuid if"},
        {"rest_server=a", 1, "write server if"},
        {"bots=a", 1, "write routing if"},
        {"port=1", 1, "write http_port if"},
        {"zzz=a", 1, "use one of the keys zorvin_uuid, server"},
        {"version=7", 1, "the daemon sets this key itself"},
        {"  #api=v2", 1, "the # is not in column one"},
        {"server='a'", 2, "the quotes are part of the value: 'a'"},
        {"log=yes", 1, "with -D the log is lost"},
        {"log=True", 1, "\"True\" sends the log to standard output"},
        {"http_port=65536", 2, "silently uses port 80"},
        {"api=V3", 2, "write exactly v2 or v3"},
        {"fusion=Yes", 1, "only yes does"},
        {"fusion=no", 0, "engines are not offered to the server"},
        {"csi_file=yes", 1, "save CSI to a file named \"yes\""},
        {"csi_file=/tmp/a", 0, "save CSI to \"/tmp/a\""},
        {"log=true", 0, "with -D, standard output stays open"},
        {"http_port=80x", 1, "\"80x\" is read as 80"},
        {"api=v2#3", 1, "the # ends the value, which is only \"v2\""},
        {"=v2", 1, "there is no key before the \"=\""},
        {"\xef\xbb\xbfserver=a", 1, "begins with a byte order mark"},
        {"server=http://a", 2, "begins with \"http://\": requests go to a host named \"http\""},
        {"server=a:80", 2, "has a port: every request fails"},
        {"server=a:", 2, "ends with a colon"},
        {"server=[::1]:80", 2, "has a port"},
        {"server=a:b:c", 2, "has several colons"},
        {"server=user@", 2, "has no host name"},
        {"server=a b", 2, "contains white space: every request fails"},
        {"server=a/b", 2, "has a path: requests go to the wrong URL"},
        {"server=a?b", 2, "has a query: requests go to the wrong URL"},
        {"server=user@a", 1, "has a user name"},
        {"server=user@a!", 2, "not a host name: it contains \"!\""},
        {"server=a|b", 2, "not a host name: it contains \"|\""},
        {"server=[a", 2, "only an IPv6 address may stand in brackets"},
        {"server=https://a", 2, "but the daemon speaks only plain HTTP: requests go to a host"},
        {"server=[127.0.0.1]", 2, "only an IPv6 address may stand in brackets"},
        {"server=fe80::1", 2, "-> write [fe80::1]"},
        {"server=[fe80::1]", 0, "the REST server is \"[fe80::1]\""},
        {"server=192.0.2.300", 1, "may read it as a different one"},
        {"server=a-b_c.lan", 0, "the REST server is \"a-b_c.lan\""},
        {"zorvin_uuid=12ab", 2,
         "\"12ab\" is not a number: the server sees 12 in messages, but 12ab in URLs"},
        {"zorvin_uuid=0X1", 2,
         "the X is in upper case: the server sees 0 in messages, but 0X1 in URLs"},
        {"zorvin_uuid=09", 1, "has leading zeros: the server sees 9 in messages, but 09 in URLs"},
        {"zorvin_uuid=18446744073709551616", 2, "18446744073709551615 in messages, but 1844"},
        {"zorvin_uuid=0xfffffffffffffffff", 2,
         "in 64 bits: the server knows this access point as 18446744073709551615"},
        {"log_path=here", 1, "working directory, which is / with -D"},
        {"log_path=/tmp/x.log/", 1, "csi_receiver.log -> write only the directory: log_path=/tmp"},
        {"api=v2\rlog=no", 2, "line 1: contains a carriage return"},
        {"# a\rlog=no\r\nlog=no\r", 1, "warn  line 1: contains a carriage return"},
        {"routing=1:wlan0:020000000065", 2, "3 non-empty fields instead of 4"},
        {"routing=1:1.2.3.4:w:02:00:00:00:00:65", 2, "the hwaddr -> write 020000000065"},
        {"routing=1:1.2.3.4:w:0200", 2, "a hwaddr of 4 characters"},
        {"routing=1:1.2.3.4:w:02000000006G", 2, "accepted, but contains \"G\""},
        {"routing=1:1.2.3.4:w:0x0200000065", 2, "accepted, but begins with \"0x\""},
        {"routing=1:1.2.3.4:w:0x020000000065", 2, "\"0x\" -> write 020000000065"},
        {"routing=1 : 1.2.3.4 : w : 020000000065", 2, "fields -> write 1:1.2.3.4:w:020000000065"},
        {"routing=[1:1.2.3.4:w:020000000065]", 2, "brackets around it -> write 1:1.2.3.4:w:02"},
        {"routing=1", 2, "has 1 non-empty field instead"},
        {"routing=1:a.lan:w:020000000065", 2, "the address \"a.lan\" is not an IPv4 address"},
        {"routing=,", 2, "no Bot is accepted"},
        {bot + ", 2:127.0.0.1:w:020000000066", 2,
         "item 2: accepted, but the Bot cannot be reached"},
        {bot + ", ,2:127.0.0.1:w:020000000066", 1, "item 2: ignored: there is nothing in"},
        {"routing=01:127.0.0.1:w:020000000065", 2, "the server knows the Bot as 1, and no command"},
        {bot + ",0x65:127.0.0.1:w:020000000066", 1, "Bot \"101\" is in the routing twice"},
        {bot + ",102:127.0.0.1:w:020000000065", 1,
         "hwaddr \"02:00:00:00:00:65\" is in the routing twice"},
        {"routing=1x:127.0.0.1:w:020000000065", 2, "the id \"1x\" is not a number"},
        {"routing=18446744073709551615:127.0.0.1:w:020000000065", 0,
         "Bots accepted: 1 of 1, core services: 1"},
        {"routing=1:127.0.0.1:w:020000000065;2:127.0.0.1:w:020000000066", 2,
         "7 fields instead of 4"},
        {"routing=1:127.0.0.1:phy0/ap0:020000000065", 1, "cannot be the name of a network"},
    };
    for (const auto& row : rows) {
        std::string text = row.lines;
        for (const std::string& required : {bot, std::string("server=a")}) {
            const std::string key = required.substr(0, required.find('=') + 1);
            text += text.compare(0, key.size(), key) == 0 ? "" : "\n" + required;
        }
        report found;
        check(text + (text.find("zorvin_uuid") == 0 ? "" : "\nzorvin_uuid=1"), found);
        expect_finding(found, row.status, row.words);
    }
}

TEST(doctor, not_plain_text) {
    report found;
    using namespace std::string_literals;
    EXPECT_TRUE(check_syntax("\xff\xfes\0e\0"s, found).empty());
    expect_finding(found, 2, "is encoded in UTF-16");
    EXPECT_EQ(found.all().size(), 1U); // nothing about missing keys, which may all be there
    EXPECT_TRUE(check_syntax("s\0e\0"s, found).empty());
    EXPECT_EQ(found.all().size(), 2U);
    EXPECT_TRUE(check_syntax("#\na\0=b"s, found).empty());
    expect_finding(found, 2, "line 2: contains a NUL");
}

TEST(doctor, no_settings) {
    report found;
    EXPECT_TRUE(check_syntax("# server=a\n\nserver\n", found).empty());
    expect_finding(found, 2, "has no KEY=VALUE line");
}

TEST(doctor, summary) {
    report found;
    EXPECT_EQ(to_summary(found.all()), "all is well");
    found.warn("a", "b", "c");
    EXPECT_EQ(to_summary(found.all()), "1 warning");
    found.fail("a", "b", "c");
    found.fail("a", "b", "c");
    EXPECT_EQ(to_summary(found.all()), "2 failures, 1 warning");
}

TEST(doctor, socket_list) {
    const std::uint16_t port = 14312;             // 0x37E8
    const auto word = [](std::uint32_t address) { // as the kernel prints it
        std::array<char, 9> text{};
        std::snprintf(text.data(), text.size(), "%08X", unsigned{htonl(address)});
        return std::string(text.data());
    };
    const std::string head = "  sl  local_address rem_address   st\n   12: ";
    const std::string any = word(0);
    const std::string loopback = word(INADDR_LOOPBACK);
    const std::string mapped = any + any + word(0xffff); // an IPv4 address within an IPv6 one
    const std::string from_anybody = " " + any + ":0000 07\n";
    const std::pair<std::string, bool> rows[] = {
        {head + any + ":37E8" + from_anybody, true},
        {head + loopback + ":37E8" + from_anybody, true},
        {head + any + any + any + any + ":37E8" + from_anybody, true},
        {head + mapped + any + ":37E8" + from_anybody, true},
        {head + mapped + loopback + ":37E8" + from_anybody, true},
        {head + any + ":37E9" + from_anybody, false},
        {head + word(0x7f000002) + ":37E8" + from_anybody, false},
        {head + loopback + ":9999 " + loopback + ":37E8 01\n", false},
        {head + loopback + ":37E8 " + loopback + ":9999 01\n", false},
        {"", false},
    };
    for (const auto& [list, receives] : rows) {
        EXPECT_EQ(receives_from_loopback(list, port), receives) << list;
    }
}

TEST(doctor, info_replies) {
    report found;
    check_info_reply(R"({"antennas":"2","wiphy":0.5,"ssid":null,"bssid":1,"driver_name":[]})",
                     "wlan0", found);
    check_info_reply(R"({"iftype":{}})", "wlan0", found);
    check_info_reply(R"({"iftype":"ap","antennas":4,"ssid":"a"})", "wlan0", found);
    check_info_reply(R"({"iftype":"managed"})", "wlan0", found);
    check_info_reply(std::string(4096, '{'), "wlan0", found);
    check_info_reply("{}", "wlan0", found);
    for (const char* words :
         {R"("antennas":"2", a wrong type)", R"("wiphy":0.5)", R"("ssid":null)", R"("bssid":1)",
          R"("driver_name":[])", R"("iftype":{})", "incomplete data: driver \"\"", R"("managed")",
          "in less than 4096 bytes", "report an empty driver, an empty SSID and 0 chains"}) {
        expect_finding(found, 2, words);
    }
}

TEST(doctor, active_bots_replies) {
    const std::pair<const char*, const char*> rows[] = {
        {"{}", nullptr},
        {R"({"bots":[{"uuid":"1","count":4294967296,"x":[]},{}]})", nullptr},
        {"[]", "the answer to \"active_bots\" is not a JSON object"},
        {R"({"bots":{}})", R"("bots":{}, a wrong type)"},
        {R"({"bots":["1"]})", R"("bots":"1", a wrong type)"},
        {R"({"bots":[{"uuid":1}]})", R"("uuid":1, a wrong type)"},
        {R"({"bots":[{"count":-1}]})", R"("count":-1, a wrong type)"},
        {R"({"bots":[{"count":1.0}]})", R"("count":1.0, a wrong type)"},
    };
    for (const auto& [reply, words] : rows) {
        report found;
        check_active_bots_reply(reply, "core service", found);
        if (words == nullptr) {
            EXPECT_TRUE(found.all().empty()) << reply;
        } else {
            expect_finding(found, 2, words);
        }
    }
}

TEST(doctor, log_directory) {
    const temporary_directory directory;
    static_cast<void>(directory.write("file", ""));
    std::filesystem::create_directories(directory.path + "/taken/csi_receiver.log");
    const char* const as_root = "(checked as root: another user";
    const struct {
        std::string path;
        int status;
        std::string words;
    } rows[] = {
        {"/dev/null/log", 2, "\"/dev/null\" is not a directory"},
        {directory.path + "/a/b", 2,
         "/a\" does not exist; log lines are silently lost -> mkdir -p"},
        {"~/log", 2, "-> write an absolute path"},
        {directory.path + "/file", 2, "/file\" is not a directory"},
        {directory.path + "/taken", 2, "/csi_receiver.log\" is a directory"},
        {directory.path + "/new", 0, "/new\" does not exist yet; the daemon creates it"},
        {directory.path + "/", 0, geteuid() == 0 ? as_root : directory.path + "/csi_receiver.log"},
    };
    for (const auto& row : rows) {
        report found;
        check_log_file({{"log_path", {row.path, 1}}}, found);
        expect_finding(found, row.status, row.words);
        EXPECT_FALSE(std::filesystem::exists(directory.path + "/new"));
    }
    report elsewhere;
    check_log_file({{"log", {"no", 1}}, {"log_path", {"/dev/null/log", 2}}}, elsewhere);
    expect_finding(elsewhere, 1, "has no effect");
}

TEST(doctor, wrong_answers_to_a_ping) {
    peers::journal record(1000);
    peers::core_service core(record, "127.0.0.1");
    csi_receiver::routing_table table;
    read_routing("101:127.0.0.1:wlan0:020000000065", table);
    const std::pair<const char*, const char*> rows[] = {
        {"[1]", "its answer to a ping is not a JSON object: \"[1]\"; the daemon waits for it"},
        {R"({"pong":1})", "no member \"ping\""},
    };
    for (const auto& [reply, words] : rows) {
        core.answer_with([reply = reply](const std::string& /*request*/) {
            return std::optional(std::vector<std::string>{reply});
        });
        report found;
        check_core_service(table.zorvins().front(), true, found);
        expect_finding(found, 2, words);
    }
}

TEST(doctor, asks_the_peers_and_leaves_them_as_they_were) {
    peers::journal record(1000);
    peers::installation_options options;
    options.fusion = true;
    peers::installation lab(record, options);
    lab.server().queue(R"({"cmd":"version"})");
    report healthy;
    check_network(check(lab.configuration(), healthy), healthy);
    expect_finding(healthy, 0, "mode ap, driver \"qcawifi\"");
    EXPECT_EQ(lab.server().queued(), 1U);
    EXPECT_TRUE(lab.core(0).interfaces().empty());
    report dead;
    EXPECT_TRUE(lab.stop("core") && lab.stop("fusion") && lab.stop("server"));
    check_network(check(lab.configuration(), dead), dead);
    for (const char* words :
         {"14310; the daemon waits", "14312, so the engines", "FAIL  REST server"}) {
        expect_finding(dead, 2, words);
    }
}

TEST(doctor, connects_to_no_server_whose_name_cannot_be_right) {
    report found;
    check_network({{"server", {"127.0.0.1:80", 1}}}, found);
    EXPECT_TRUE(found.all().empty());
    check_network({{"server", {"user@127.0.0.1", 1}}, {"http_port", {"1", 2}}}, found);
    expect_finding(found, 2, "FAIL  REST server user@127.0.0.1: ");
}
