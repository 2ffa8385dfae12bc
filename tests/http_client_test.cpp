// The HTTP transport, against a played server on real sockets.
#include <gtest/gtest.h>

#include "http/http_client.h"
#include "peers/rest_server.h"
#include "support/fixtures.h"

using namespace csi_receiver;
using namespace std::chrono_literals;
using texts = std::vector<std::string>;

TEST(http_client, outages_are_logged_once_and_bodies_come_whole) {
    peers::journal journal;
    peers::rest_server server(journal);
    setenv("http_proxy", "http://127.0.0.1:1/", 1); // nothing is taken from the environment
    captured_output output;
    curl_http::http_client http(server.port());
    const std::string url = "http://127.0.0.1:/v2/zorvins/1/msg";
    const std::string failed = "request to " + url + " failed: Couldn't connect to server";

    server.stop();
    EXPECT_EQ(http.get(url), "");
    EXPECT_FALSE(http.connected());
    server.start();
    EXPECT_EQ(http.get(""), "");
    EXPECT_FALSE(http.connected()) << "a request without URL is none";
    server.queue("first");
    EXPECT_EQ(http.get(url), "first");
    EXPECT_TRUE(http.connected());
    EXPECT_EQ(output.lines(), texts{});
    for (int outage = 0; outage < 2; ++outage) {
        server.stop();
        EXPECT_EQ(http.post_json(url, "{}"), "");
        EXPECT_EQ(http.get(url), "");
        EXPECT_FALSE(http.connected());
        EXPECT_EQ(output.lines(), texts{failed});
        server.start();
        EXPECT_EQ(http.post_json(url, "{}"), "");
        EXPECT_TRUE(http.connected());
    }
    server.queue(std::string(3000000, 'x') + "tail"); // of several chunks the last one counts
    const std::string last = http.get(url);
    EXPECT_LT(last.size(), 3000000U);
    EXPECT_EQ(last.substr(last.size() - 4), "tail");
    server.set_status(500);
    server.queue("error text");
    EXPECT_EQ(http.get(url), "error text");
    EXPECT_TRUE(http.connected()) << "an answer is an answer, whatever its status";
    server.set_cut(true);
    server.queue("never comes whole");
    EXPECT_NE(http.get(url), "never comes whole");
    EXPECT_FALSE(http.connected());
    EXPECT_EQ(output.lines().size(), 1U);
    unsetenv("http_proxy");
}

TEST(http_client, one_connection_one_header_and_the_last_chunk) {
    peers::journal journal;
    peers::rest_server server(journal);
    curl_http::http_client http(server.port());
    const std::string url = "http://127.0.0.1:1/v2/zorvins/1/msg"; // the port is overruled
    http.get(url);
    http.post_json(url, R"({"a":1})");
    http.get(url);
    std::string sink = "before";
    server.queue("into the sink");
    EXPECT_EQ(http.get_with_sink(url, &sink), "");
    EXPECT_EQ(sink, "into the sink");
    const std::vector<peers::http_request> requests = server.requests();
    ASSERT_EQ(requests.size(), 4U);
    EXPECT_EQ(requests[0].header("Content-Type"), "");
    for (std::size_t at = 1; at < requests.size(); ++at) {
        EXPECT_EQ(requests[at].header("Content-Type"), "application/json");
        EXPECT_EQ(requests[at].remote_port, requests[0].remote_port);
    }
    EXPECT_EQ(requests[1].body, R"({"a":1})");

    std::string target;
    char one[] = "one";
    char two[] = "two";
    EXPECT_EQ(curl_http::http_client::curl_callback(one, 1, 3, &target), 3U);
    EXPECT_EQ(curl_http::http_client::curl_callback(two, 3, 1, &target), 3U);
    EXPECT_EQ(curl_http::http_client::curl_callback(nullptr, 2, 3, &target), 6U);
    EXPECT_EQ(target, "two");

    http.set_shutdown_test([] { return true; });
    EXPECT_EQ(http.get(url), "");
    EXPECT_FALSE(http.post_json_unless_shutting_down(url, "left out"));
    http.post_json(url, "sent");
    EXPECT_EQ(server.requests().size(), 5U);
    EXPECT_EQ(server.requests().back().body, "sent");
}

TEST(http_client, waits_for_a_silent_server_and_for_its_turn) {
    peers::journal journal;
    peers::rest_server server(journal);
    captured_output output;
    curl_http::http_client http(server.port());
    server.set_delay(300ms);
    stopwatch watch;
    std::thread other([&http] { http.post_json("http://127.0.0.1:/v2/zorvins/1/msg", "{}"); });
    http.get("http://127.0.0.1:/v2/zorvins/1/msg");
    other.join();
    EXPECT_GE(watch.elapsed(), 600ms); // one after the other
    server.set_silent(true);
    watch = {};
    EXPECT_EQ(http.get("http://127.0.0.1:/v2/zorvins/1/msg"), "");
    EXPECT_GE(watch.elapsed(), 5s);
    EXPECT_LT(watch.elapsed(), 6s);
}
