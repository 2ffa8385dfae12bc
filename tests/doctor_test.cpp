// csi_doctor: what must be said about broken configurations, replies and peers.
#include <algorithm>

#include <gtest/gtest.h>

#include "lab/installation.h"
#include "support/fixtures.h"
#include "tools/core_checks.h"
#include "tools/log_checks.h"
#include "tools/network_checks.h"
#include "tools/routing_checks.h"
#include "tools/value_checks.h"

using namespace csi_doctor;

static settings check(const std::string& text, report& to) {
    settings taken = check_lines(text, to);
    check_values(taken, to);
    check_routing(taken, to);
    return taken;
}

static void expect(const report& found, int status, const std::string& words) {
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
        {"api=v3\n#api=v4\n  # none\nlog=no # here", 0, "the value is \"no\""},
        {"server", 1, "line 1: left out, because there is no \"=\""},
        {"fusion=#yes", 1, "(fusion): left out, because the value is empty (a # ends it)"},
        {"api=v2\napi=", 1, "line 1 stays valid"},
        {"api=v2\napi=v3", 1, "warn  line 2 (api): replaces line 1"},
        {"sever=a", 1, "write server if you meant that"},
        {"version=7", 1, "the daemon sets this key itself"},
        {"  #api=v2", 1, "the # is not in column one"},
        {"server='a'", 2, "the quotes are taken as a part"},
        {"log=yes", 1, "with -D it is lost"},
        {"log=True", 1, "\"True\" sends the log to standard output"},
        {"http_port=65536", 2, "silently uses port 80"},
        {"api=V3", 2, "write exactly v2 or v3"},
        {"fusion=Yes", 1, "only yes does"},
        {"server=http://a", 2, "has a scheme"},
        {"server=a:80", 2, "has a port"},
        {"zorvin_uuid=12ab", 2, "\"12ab\" is no number: the server is told 12"},
        {"zorvin_uuid=0X1", 2, "the X is in upper case"},
        {"log_path=here", 1, "with -D from /"},
        {"routing=1:wlan0:020000000065", 2, "3 fields that are not empty, instead of 4"},
        {"routing=1:1.2.3.4:w:02:00:00:00:00:65", 2, "the hwaddr -> write 020000000065"},
        {"routing=1:1.2.3.4:w:0200", 2, "a hwaddr of 4 characters"},
        {"routing=1:1.2.3.4:w:02000000006G", 2, "not all hexadecimal"},
        {"routing=1:a.lan:w:020000000065", 2, "the address \"a.lan\" is not IPv4"},
        {"routing=,", 2, "no Bot is left"},
        {bot + ", 2:127.0.0.1:w:020000000066", 2, "item 2: the id \" 2\" has a blank"},
        {bot + ",0x65:127.0.0.1:w:020000000066", 1, "Bot \"101\" is routed twice"},
    };
    for (const auto& row : rows) {
        std::string text = row.lines;
        for (const std::string& required : {bot, std::string("server=a")}) {
            const std::string key = required.substr(0, required.find('=') + 1);
            text += text.compare(0, key.size(), key) == 0 ? "" : "\n" + required;
        }
        report found;
        check(text + (text.find("zorvin_uuid") == 0 ? "" : "\nzorvin_uuid=1"), found);
        expect(found, row.status, row.words);
    }
}

TEST(doctor, replies_that_end_the_daemon) {
    report found;
    check_info_reply(R"({"antennas":"2","ssid":null,"iftype":"ap"})", "wlan0", found);
    check_info_reply(R"({"iftype":"managed"})", "wlan0", found);
    for (const char* words : {R"("antennas":"2", which)", R"("ssid":null)", R"("managed")"}) {
        expect(found, 2, words);
    }
}

TEST(doctor, log_directory) {
    report found;
    check_log_file({{"log_path", {"/dev/null/log", 1}}}, found);
    expect(found, 2, "\"/dev/null\" is no directory");
}

TEST(doctor, asks_the_peers_and_leaves_them_as_they_were) {
    csi_lab::journal record(1000);
    csi_lab::installation_options options;
    options.fusion = true;
    csi_lab::installation lab(record, options);
    lab.server().queue(R"({"cmd":"version"})");
    report healthy;
    check_network(check(lab.configuration(), healthy), healthy);
    expect(healthy, 0, "mode ap, driver \"qcawifi\"");
    EXPECT_EQ(lab.server().queued(), 1U);
    EXPECT_TRUE(lab.core(0).interfaces().empty());
    report dead;
    EXPECT_TRUE(lab.stop("core") && lab.stop("fusion") && lab.stop("server"));
    check_network(check(lab.configuration(), dead), dead);
    for (const char* words : {"14310; the daemon waits", "14312: the", "FAIL  REST server"}) {
        expect(dead, 2, words);
    }
}
