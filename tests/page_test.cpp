// The page of csi_lab, as far as no browser is needed: tests/page/try drives it with one.
#include <atomic>
#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "http/http_client.h"
#include "lab/chart.h"
#include "lab/page_feed.h"
#include "lab/page_server.h"
#include "lab/page_state.h"
#include "support/fixtures.h"
#include "support/tcp_client.h"
#include "support/vectors.h"

using namespace std::chrono_literals;

TEST(page, answers_nobody_but_itself_and_people) {
    for_each_case("programs/page_requests", [](const json::value& one) {
        const auto member = [&one](const char* name, const std::string& otherwise) {
            return std::string(json::find_string(one, name).value_or(otherwise));
        };
        peers::http_request request{};
        request.method = member("method", "GET");
        for (const auto& header : one["headers"].GetObject()) {
            request.headers.emplace_back(wire_text(header.name), wire_text(header.value));
        }
        const auto at = csi_lab::parse_page_address(member("at", "127.0.0.1:8088"));
        EXPECT_EQ(csi_lab::refusal(request, at).value_or(200),
                  json::find_int(one, "status").value_or(200));
    });
}

TEST(page, charts_show_messages_as_what_they_are) {
    for_each_case("programs/page_charts", [](const json::value& one) {
        std::ostringstream lines;
        for_each(one, "lines", [&](const json::value& line) { lines << wire_text(line) << '\n'; });
        std::istringstream from(lines.str());
        const auto recording = csi_lab::read_recording(from);
        const std::string picture = csi_lab::chart_picture(recording);
        const std::string page = csi_lab::chart_page(recording, "it's");
        const auto expect_in = [](const std::string& text, const json::value& wanted, bool there) {
            EXPECT_EQ(text.find(wire_text(wanted)) != std::string::npos, there)
                << wire_text(wanted) << "\n"
                << text;
        };
        for_each(one, "shows", [&](const json::value& text) { expect_in(picture, text, true); });
        for_each(one, "data", [&](const json::value& text) { expect_in(page, text, true); });
        for_each(one, "not", [&](const json::value& text) {
            expect_in(picture, text, false);
            const std::size_t begin = page.find("\"items\"");
            expect_in(page.substr(begin, page.find("</script>\n", begin) - begin), text, false);
        });
    });
}

TEST(page, feed_keeps_the_latest_and_can_be_read_from_anywhere) {
    csi_lab::page_feed feed(2);
    for (const char* const text : {"one", "two", "three"}) {
        feed.note("said", text);
    }
    const auto batch = feed.read(0, 0ms);
    EXPECT_EQ(batch.next, 3U);
    EXPECT_EQ(batch.items.find("one"), std::string::npos) << batch.items;
    EXPECT_LT(batch.items.find("two"), batch.items.find("three")) << batch.items;
    EXPECT_EQ(feed.read(3, 0ms).items, "[]");
    EXPECT_EQ(feed.read(99, 0ms).next, 3U);
    feed.close();
    EXPECT_EQ(feed.read(3, 1h).items, "[]");
}

/// The state of a lab whose "daemon" shows its configuration and ends.
TEST(page, state_tells_whether_the_daemon_is_there) {
    peers::journal journal;
    peers::installation_options options;
    options.http_port = 0;
    peers::installation lab(journal, options);
    std::atomic<std::size_t> lines{0};
    csi_lab::daemon_runner daemon("/bin/cat", "one\ntwo\n", [&](const std::string&) { ++lines; });
    const auto state = [&](csi_lab::daemon_runner* runs) {
        return json::parse(csi_lab::describe_peers({lab, runs}));
    };
    const auto attached = [&](csi_lab::daemon_runner* runs) {
        return std::string(json::find_string(state(runs)["server"], "attached").value_or("none"));
    };
    curl_http::http_client http(lab.server().port());
    http.post_json("http://127.0.0.1:/v2/zorvins/attach", R"({"zorvin":9001})");
    EXPECT_EQ(attached(nullptr), "9001");
    EXPECT_EQ(json::find(state(nullptr), "daemon_runs"), nullptr);
    EXPECT_TRUE(daemon.start());
    EXPECT_TRUE(wait_until([&] { return !daemon.running(); }));
    EXPECT_EQ(lines, 2U);
    EXPECT_FALSE(state(&daemon)["daemon_runs"].GetBool());
    EXPECT_EQ(attached(&daemon), "") << "although it did not say so";
    lab.server().queue(R"({"cmd":"disconnect"})");
    http.get("http://127.0.0.1:/v2/zorvins/9001/msg");
    EXPECT_EQ(attached(nullptr), "");
}

TEST(page, routes_lead_to_the_lab_and_every_answer_is_guarded) {
    std::string executed;
    csi_lab::page_server::source lab{R"({"mode":"live"})",
                                     [](csi_lab::page_server::position from) {
                                         return std::to_string(from.item) + "," +
                                                std::to_string(from.version);
                                     },
                                     [&executed](const std::string& line) {
                                         executed += "<" + line + ">";
                                         return std::string(R"({"text":"done"})");
                                     }};
    const csi_lab::page_server live({"127.0.0.1", 0}, lab);
    lab.execute = nullptr;
    const csi_lab::page_server viewer({"127.0.0.1", 0}, lab);
    for_each_case("programs/page_routes", [&](const json::value& one) {
        const csi_lab::page_server& server = json::find(one, "viewer") == nullptr ? live : viewer;
        const std::string url = server.url();
        const std::string host = url.substr(7, url.size() - 8);
        const std::string body = wire_text(one["body"]);
        const std::string answer =
            exchange(static_cast<std::uint16_t>(std::stoi(host.substr(host.find(':') + 1))),
                     wire_text(one["line"]) + " HTTP/1.1\r\nHost: " + host +
                         "\r\nContent-Type: application/json\r\nContent-Length: " +
                         std::to_string(body.size()) + "\r\n\r\n" + body);
        EXPECT_EQ(answer.rfind("HTTP/1.1 " + wire_text(one["status"]), 0), 0U) << answer;
        EXPECT_NE(answer.find(wire_text(one["has"])), std::string::npos) << answer;
        EXPECT_NE(answer.find("\r\nContent-Security-Policy: default-src 'none'; "),
                  std::string::npos);
        EXPECT_EQ(answer.find("unsafe-"), std::string::npos);
        EXPECT_EQ(std::exchange(executed, ""), json::find_string(one, "executes").value_or(""));
    });
}
