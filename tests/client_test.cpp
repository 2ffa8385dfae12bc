// The client's life in this process, against played peers on real sockets.
#include <gtest/gtest.h>

#include "support/client_fixture.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

TEST_F(client, start_up_failures) {
    const struct {
        const char* key;
        const char* value;
        texts lines; // after the line of the Bot
    } rows[] = {
        {"api", "V2", {"API version unsupported"}},
        {"zorvin_uuid", "", {"invalid zorvin_uuid"}},
        {"routing", "a:b:c", {"error parsing \"routing=a:b:c\" configuration parameter"}},
    };
    const configuration good = settings;
    for (const auto& row : rows) {
        settings = good;
        settings[row.key] = row.value;
        texts lines = lines_of_failed_start();
        if (lines.front().rfind("Add bot", 0) == 0) {
            lines.erase(lines.begin());
        }
        EXPECT_EQ(lines, row.lines) << row.key;
    }
    settings = good;
    peers::interface_facts station;
    station.iftype = "station";
    core.set_facts("wlan0", station);
    EXPECT_EQ(lines_of_failed_start().back(),
              "Error: wrong wlan mode: station for interface wlan0 on zorvin 127.0.0.1");
}

TEST_F(client, the_last_zorvin_decides_whether_core_services_are_up) {
    peers::core_service last(journal, "127.0.0.3");
    last.stop();
    settings["routing"] += ",102:127.0.0.2:wlan1:0A0000000102,103:127.0.0.3:wlan2:0A0000000103";
    captured_output output;
    running_client run(settings);
    const auto pings = [&] { return journal.count("daemon", "core 127.0.0.1"); };
    ASSERT_TRUE(wait_until([&] { return pings() >= 5; })); // the first answers, and it waits on
    run.signal(SIGINT);
    const std::size_t before = pings();
    ASSERT_TRUE(wait_until([&] { return pings() >= before + 3; })) << "SIGINT ended the wait";
    last.start(); // the one between stays away, and nobody minds
    EXPECT_TRUE(sees_attaches(1));
    run.signal(SIGHUP);
    run.join();
    const texts lines = output.lines();
    EXPECT_EQ(count_line(lines, "received hangup signal "), 1U);
    EXPECT_EQ(count_line(lines, "Error connecting to core service"), 0U);
}

TEST_F(client, a_signal_ends_the_wait_for_core_services) {
    core.stop();
    captured_output output;
    running_client run(settings);
    run.signal(SIGTERM);
    run.join();
    const texts lines = output.lines();
    EXPECT_EQ(count_line(lines, "Error connecting to core service"), 1U);
    EXPECT_GE(count_line(lines, R"(127.0.0.1: failed to send {"ping":null})"), 1U);
}

TEST_F(client, the_log_stays_small_while_core_services_are_waited_for) {
    temporary_directory directory;
    core.stop();
    settings.erase("log");
    settings["log_path"] = directory.path;
    settings["execname"] = "x";
    {
        running_client run(settings);
        const auto is_there = [&](const std::string& file) { // no reader is in the client's way
            std::error_code absent;
            return std::filesystem::file_size(directory.path + file, absent) > 0 && !absent;
        };
        ASSERT_TRUE(wait_until([&] { return is_there("/x.log"); }, bound));
        print(std::string(static_cast<std::size_t>(log_size_limit), '.')); // days of waiting
        EXPECT_TRUE(wait_until([&] { return is_there("/x.log.1") && is_there("/x.log"); }, bound));
    }
    EXPECT_NE(directory.read("x.log.1").find("failed to send"), std::string::npos);
    EXPECT_NE(directory.read("x.log").find("] log rotated\n"), std::string::npos);
    log_out.close();
}

TEST_F(client, attaches_with_what_the_last_access_point_tells) {
    peers::interface_facts other{3, 2, "ath9k", "", "ap", "other"};
    peers::interface_facts unknown;
    unknown.iftype = "";
    core.set_facts("wlan0", unknown); // skipped
    core.set_facts("wlan1", {0, 4, "qcawifi", "", "ap", "net"});
    core.set_facts("wlan2", other); // not the first of its Zorvin
    settings["routing"] = "101:127.0.0.1:wlan0:0A0000000101,102:127.0.0.1:wlan1:0A0000000102,"
                          "103:127.0.0.1:wlan2:0A0000000103";
    settings["csi_file"] = "/tmp/csi";
    core.answer_with([](const std::string& request) -> std::optional<texts> {
        const bool saves = request.find("save_csi") != std::string::npos;
        return saves ? std::optional<texts>({R"({"success":1})"}) : std::nullopt;
    });
    captured_output output;
    {
        running_client run(settings);
        ASSERT_TRUE(sees_attaches(1));
        ASSERT_TRUE(sees_reply(R"({"cmd":"associate","success":true})"));
    }
    const peers::http_request attach = server.requests().front();
    EXPECT_EQ(attach.path, "/v2/zorvins/attach");
    EXPECT_EQ(attach.header("Host"), "localhost:" + std::to_string(server.port()));
    EXPECT_EQ(attach.body,
              R"({"type":"zorvin","driver":"ath10k","zorvin":9001,"ssid":"net","join":true,)"
              R"("chains":4,"bot_info":[],"version":"v9",)"
              R"("localCalculationSupport":{"motion2":1,"breathing2":1,"guard":1}})");
    texts asked;
    for (const peers::message& message : journal.select("daemon", "core 127.0.0.1")) {
        asked.push_back(message.text);
    }
    EXPECT_EQ(count_line(asked, R"({"cmd":"save_csi","enable":true,"filename":"/tmp/csi"})"), 1U);
    EXPECT_EQ(asked.back(), R"({"cmd":"del_interface","ifname":"wlan2"})");
    const texts lines = output.lines();
    EXPECT_EQ(count_line(lines, "Save CSI error for zorvin at 127.0.0.1"), 1U);
    EXPECT_EQ(
        count_line(lines, "Connected to REST server at localhost:" + std::to_string(server.port())),
        1U);
    EXPECT_EQ(count_line(lines, R"([ localhost ] <-- {"cmd":"associate","success":true})"), 1U);
}

TEST_F(client, version_three_attaches_at_the_message_url) {
    settings["api"] = "v3";
    settings["fusion"] = "yes";
    settings["csi_file"] = "/tmp/csi";
    settings["http_port"] = "0"; // replaced below, once the server of that version is there
    peers::rest_server_options options;
    options.api = "v3";
    peers::rest_server third(journal, options);
    settings["http_port"] = std::to_string(third.port()) + " and more";
    captured_output output;
    running_client run(settings);
    ASSERT_TRUE(third.wait_for([](const auto& requests) { return requests.size() > 2; }, bound));
    run.signal(SIGTERM);
    run.join();
    EXPECT_EQ(count_line(output.lines(), "Saving CSI to /tmp/csi on zorvind 127.0.0.1"), 1U);
    const peers::http_request attach = third.requests().front();
    EXPECT_EQ(attach.path, "/v3/zorvins/9001/msg");
    EXPECT_NE(attach.body.find(R"("driver":"ath10k","request":"zorvinAttach","zorvin":9001,)"),
              std::string::npos);
    EXPECT_NE(attach.body.find(R"("guard":1,"cpd":1,"softSecurity":1}})"), std::string::npos);
    EXPECT_EQ(third.requests()[1].path, "/v3/zorvins/9001/msg");
}

TEST_F(client, drains_the_queue_in_one_poll_and_loses_the_session_when_told) {
    settings["server"] = "127.0.0.1";
    captured_output output;
    running_client run(settings);
    ASSERT_TRUE(sees_attaches(1));
    server.queue(R"({"cmd":"poll_interval","interval":500})");
    server.queue("rubbish");
    server.queue(R"({"cmd":"poll_interval","interval":60,"n":3})");
    ASSERT_TRUE(sees_reply(R"({"cmd":"poll_interval","interval":60,"n":3,"success":true})"));
    const std::size_t gets = server.gets();
    ASSERT_TRUE(wait_until([&] { return server.gets() > gets + 3; }));

    // GET and POST by turns while there are commands; with a poll for each it would take a second.
    std::vector<peers::http_request> requests = server.requests();
    const auto last = std::find_if(requests.begin(), requests.end(), [](const auto& request) {
        return request.body.find(R"("n":3)") != std::string::npos;
    });
    ASSERT_GE(last - requests.begin(), 6);
    std::string methods;
    for (auto at = last - 5; at <= last; ++at) {
        methods += at->method + " ";
    }
    EXPECT_EQ(methods, "GET POST GET POST GET POST ");
    EXPECT_EQ((last - 2)->body, R"({"success":false,"reason":"Object error"})");
    EXPECT_LT(last->when - (last - 5)->when, 500ms);

    const stopwatch watch;
    server.queue(R"({"cmd":"disconnect"})");
    ASSERT_TRUE(sees_attaches(2));
    EXPECT_GE(watch.elapsed(), 1200ms); // 20 poll intervals
    EXPECT_LT(watch.elapsed(), 2s);
    run.signal(SIGTERM);
    run.join();
    const std::string port = std::to_string(server.port());
    const texts lines = output.lines();
    EXPECT_EQ(count_line(lines, "Disconnected from REST server at 127.0.0.1:" + port), 1U);
    EXPECT_EQ(count_line(lines, "Connected to REST server at 127.0.0.1:" + port), 2U);
}

TEST_F(client, attaches_again_after_an_outage_and_not_without_an_answer) {
    server.set_attach_answer("");
    captured_output output;
    running_client run(settings);
    ASSERT_TRUE(sees_attaches(2)); // an empty answer is no connection, and no line
    server.set_attach_answer(R"({"cmd":"disconnect"})");
    ASSERT_TRUE(sees_attaches(3));
    server.set_attach_answer(R"({"cmd":"scan"})"); // an answer that needs no reply is one
    ASSERT_TRUE(wait_until([&] { return server.gets() > 0; }));
    EXPECT_EQ(server.posts(), server.attaches());
    server.stop();
    ASSERT_TRUE(wait_until([&] { return !server.running(); }));
    std::this_thread::sleep_for(2500ms); // an outage of more than one attempt
    server.start();
    const std::size_t attaches = server.attaches();
    ASSERT_TRUE(wait_until([&] { return server.attaches() > attaches; }));
    run.signal(SIGTERM);
    run.join();
    std::size_t failures = 0;
    for (const std::string& line : output.lines()) {
        failures += line.rfind("request to http://localhost:/v2/", 0) == 0 ? 1U : 0U;
    }
    EXPECT_EQ(failures, 1U);
}
