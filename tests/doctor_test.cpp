// csi_doctor: what it reports about broken configurations, replies and peers.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "doctor/configuration_file.h"
#include "doctor/core_checks.h"
#include "doctor/core_replies.h"
#include "doctor/log_checks.h"
#include "doctor/network_checks.h"
#include "doctor/routing_checks.h"
#include "doctor/udp_sockets.h"
#include "doctor/value_checks.h"
#include "peers/installation.h"
#include "platform/udp_client.h"
#include "support/fixtures.h"
#include "support/vectors.h"

using namespace csi_doctor;

static const std::string source_folder = std::string(CSI_RECEIVER_VECTORS) + "/../../";

static settings check(const std::string& text, report& findings) {
    settings config = check_syntax(text, findings);
    check_values(config, findings);
    check_routing(config, findings);
    return config;
}

/// The matches' first groups.
static std::set<std::string> find_all(const std::string& text, const std::string& pattern) {
    const std::regex wanted(pattern);
    std::set<std::string> result;
    for (std::sregex_iterator match(text.begin(), text.end(), wanted), end; match != end; ++match) {
        result.insert(match->str(1));
    }
    return result;
}

/// Words of the line or of the JSON object; a code, if one is expected.
static void expect_finding(const report& found, int status, const std::string& words,
                           const std::string& code = "") {
    const auto says = [&](const finding& one) {
        const std::string text = to_line(one, false) + to_json({one});
        return text.find(words) != std::string::npos && (code.empty() || one.code.name == code);
    };
    EXPECT_TRUE(std::any_of(found.all().begin(), found.all().end(), says)) << words;
    static const std::string documents = read_file(source_folder + "docs/operations.md");
    for (const finding& one : found.all()) {
        const std::string line = to_line(one, false); // begins with the level
        const std::regex row("\n\\| `" + std::string(one.code.name) + "` \\| [^|]*" +
                             line.substr(0, 2));
        EXPECT_TRUE(std::regex_search(documents, row)) << line;
    }
    EXPECT_EQ(found.exit_status(), status) << words << to_json(found.all());
}

/// What a case of the vectors expects.
static void expect_case(const report& found, const json::value& one) {
    expect_finding(found, one["status"].GetInt(), wire_text(one["says"]), wire_text(one["code"]));
    EXPECT_TRUE(json::find(one, "alone") == nullptr || found.all().size() == 1);
}

/// The symbolic links that a case needs: targets by path.
static void make_links(const json::value& one, const std::string& folder) {
    if (const json::value* const links = json::find(one, "links")) {
        for (const auto& each : links->GetObject()) {
            const std::filesystem::path link = folder + "/" + wire_text(each.name);
            std::filesystem::create_directories(link.parent_path());
            std::filesystem::create_symlink(wire_text(each.value), link);
        }
    }
}

/// The case's text, and the required keys that it does not begin with.
static std::string completed(const json::value& one) {
    std::string text = wire_text(one["text"]);
    for (const std::string required :
         {"routing=101:127.0.0.1:wlan0:0a0000000065", "server=a", "zorvin_uuid=1"}) {
        const std::string key = required.substr(0, required.find('=') + 1);
        text += text.compare(0, key.size(), key) == 0 ? "" : "\n" + required;
    }
    return text;
}

TEST(doctor, configurations) {
    for_each_case("doctor/configurations", [](const json::value& one) {
        report found;
        check(completed(one), found);
        expect_case(found, one);
    });
}

TEST(doctor, files) {
    const temporary_directory directory;
    static_cast<void>(directory.write("good", "a=b\n"));
    static_cast<void>(directory.write("large", std::string(1'048'575, '#')));
    static_cast<void>(directory.write("too_large", std::string(1'048'576, '#')));
    ASSERT_EQ(mkfifo((directory.path + "/fifo").c_str(), 0644), 0);
    const auto check_case = [&](const json::value& one) {
        make_links(one, directory.path);
        report found;
        const std::string path = directory.path + "/" + wire_text(one["path"]);
        if (read_configuration_file(path, found)) {
            EXPECT_TRUE(one["status"].GetInt() == 0 && found.all().empty());
        } else {
            expect_case(found, one);
        }
    };
    for_each_case("doctor/files", check_case, directory.path);
}

TEST(doctor, warns_of_each_value_to_replace_in_the_sample) {
    report found;
    check(read_file(source_folder + "packaging/csi_receiver.conf"), found);
    expect_finding(found, 1, "line 13 (server)", "server_documentation");
    EXPECT_EQ(to_summary(found.all()), "4 warnings");
}

TEST(doctor, documents_each_code) {
    std::string source;
    for (const auto& file : std::filesystem::directory_iterator(source_folder + "doctor")) {
        source += read_file(file.path());
    }
    EXPECT_EQ(find_all(source, R"re("([a-z0-9_]+)"_code)re"),
              find_all(read_file(source_folder + "docs/operations.md"),
                       "\n\\| `([a-z0-9_]+)` \\| (?:ok|warn|FAIL)"));
}

TEST(doctor, no_settings) {
    using namespace std::string_literals;
    for (const std::string& text : {"\xff\xfes\0e\0"s, "\xfe\xff"s, "s\0e\0"s}) {
        report found;
        EXPECT_TRUE(check_syntax(text, found).empty());
        expect_finding(found, 2, "is encoded in UTF-16");
        EXPECT_EQ(found.all().size(), 1U); // nothing about missing keys, which may all be there
    }
    report found;
    EXPECT_TRUE(check_syntax("# server=a\n\nserver\n", found).empty());
    expect_finding(found, 2, "has no KEY=VALUE line");
}

TEST(doctor, summary) {
    report found;
    EXPECT_EQ(to_summary(found.all()), "all is well");
    found.warn("x"_code, "a", "b", "c");
    EXPECT_EQ(to_summary(found.all()), "1 warning");
    found.fail("x"_code, "a", "b", "c");
    found.fail("x"_code, "a", "b", "c");
    EXPECT_EQ(to_summary(found.all()), "2 failures, 1 warning");
}

TEST(doctor, socket_list) {
    const auto word = [](std::uint32_t address) { // as the kernel prints it
        char text[9];
        std::snprintf(text, sizeof text, "%08X", unsigned{htonl(address)});
        return std::string(text);
    };
    const std::string any = word(0);
    const std::string loopback = word(INADDR_LOOPBACK);
    const std::string mapped = any + any + word(0xffff); // an IPv4 address within an IPv6 one
    const std::string from_anybody = ":37E8 " + any + ":0000";
    const std::pair<std::string, bool> rows[] = {
        {any + from_anybody, true},
        {loopback + from_anybody, true},
        {any + any + any + any + from_anybody, true},
        {mapped + any + from_anybody, true},
        {mapped + loopback + from_anybody, true},
        {any + ":37E9 " + any + ":0000", false},
        {word(0x7f000002) + from_anybody, false},
        {loopback + ":9999 " + loopback + ":37E8", false},
        {loopback + ":37E8 " + loopback + ":9999", false},
        {"", false},
    };
    for (const auto& [addresses, receives] : rows) {
        const std::string list =
            "  sl  local_address rem_address   st\n   12: " + addresses + " 07\n";
        EXPECT_EQ(receives_from_loopback(list, 0x37e8), receives) << list;
    }
}

TEST(doctor, replies) {
    peers::journal record(1000);
    peers::core_service core(record, "127.0.0.1");
    csi_receiver::routing_table table;
    read_routing("101:127.0.0.1:wlan0:020000000065", table);
    for_each_case("doctor/replies", [&](const json::value& one) {
        const auto reply_to = [&one](const char* request) {
            const json::value* const reply = json::find(one, request);
            return reply == nullptr ? R"({"ping":0})" : wire_text(*reply);
        };
        core.answer_with([ping = reply_to("ping"), info = reply_to("info")](const auto& request) {
            const bool pinged = request == R"({"ping":null})";
            return std::optional(std::vector<std::string>{pinged ? ping : info});
        });
        report found;
        check_core_service(table.zorvins().front(), true, found);
        expect_case(found, one);
    });
    report found;
    check_info_reply(std::string(4096, '{'), "wlan0", found);
    expect_finding(found, 2, "in less than 4096 bytes");
}

TEST(doctor, active_bots_replies) {
    for_each_case("doctor/active_bots", [](const json::value& one) {
        report found;
        check_active_bots_reply(wire_text(one["reply"]), "core service", found);
        if (one.HasMember("says")) {
            expect_finding(found, 2, wire_text(one["says"]));
        } else {
            EXPECT_TRUE(found.all().empty());
        }
    });
}

TEST(doctor, log_directory) {
    const temporary_directory directory;
    directory.write("file", "");
    std::filesystem::create_directories(directory.path + "/taken/csi_receiver.log");
    const auto check_case = [&](const json::value& one) {
        make_links(one, directory.path);
        report syntax;
        report found;
        check_log_file(check_syntax(completed(one), syntax), found);
        expect_case(found, one);
        if (found.exit_status() == 0 && geteuid() == 0) {
            expect_finding(found, 0, "(checked as root: another user");
        }
        EXPECT_FALSE(std::filesystem::exists(directory.path + "/new"));
    };
    for_each_case("doctor/log_paths", check_case, directory.path);
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

TEST(doctor, finds_no_route_and_broadcast_addresses) {
    csi_receiver::routing_table table;
    read_routing("1:10.0.0.1:w:0a0000000065,2:127.255.255.255:w:0a0000000066", table);
    report found;
    check_core_service(table.zorvins().back(), true, found);
    expect_finding(found, 2, "is the broadcast address of a network", "core_broadcast");
    if (csi_receiver::udp_client("10.0.0.1", 1).fd() >= 0) {
        GTEST_SKIP() << "the system grants no network of its own, and this one has a route";
    }
    check_core_service(table.zorvins().front(), true, found);
    check_network({{"server", {"10.0.0.1", 1}}}, found);
    expect_finding(found, 2, "no route to this address", "core_no_route");
    expect_finding(found, 2, "this machine has no route to the server: ", "server_no_route");
}
