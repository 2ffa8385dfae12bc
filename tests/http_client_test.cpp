// The HTTP transport, against a played server on real sockets.
#include <atomic>
#include <future>
#include <regex>
#include <tuple>

#include <gtest/gtest.h>

#include "http/http_client.h"
#include "peers/http_listener.h"
#include "peers/rest_server.h"
#include "platform/descriptor.h"
#include "platform/socket.h"
#include "support/fixtures.h"
#include "support/vectors.h"

using namespace csi_receiver;
using namespace std::chrono_literals;
using texts = std::vector<std::string>;

namespace {

/// Answers the requests of one connection with these texts as they stand, and returns the first
/// lines of the requests, which have no bodies.
texts serve(int listener, const texts& answers) {
    texts requests;
    std::string address;
    std::uint16_t port = 0;
    const descriptor connection(accept_peer(listener, address, port));
    for (const std::string& answer : answers) {
        std::vector<char> buffer(4096);
        recv_into(connection.get(), buffer, 0);
        const std::string request(buffer.data());
        requests.push_back(request.substr(0, request.find('\r')));
        send_text(connection.get(), answer, MSG_NOSIGNAL);
    }
    return requests;
}

struct http_client : testing::Test {
    const std::string url = "http://127.0.0.1:1/v2/zorvins/1/msg"; // the port is overruled
    peers::journal journal;
    peers::rest_server server{journal};
    curl_http::http_client http{server.port()};
};

} // namespace

TEST_F(http_client, logs_each_outage_once) {
    setenv("http_proxy", "http://127.0.0.1:1/", 1); // nothing is taken from the environment
    captured_output output;
    const texts failed = {"request to " + url +
                          " failed: " + curl_easy_strerror(CURLE_COULDNT_CONNECT)};
    server.stop();
    EXPECT_TRUE(http.get(url).empty() && !http.connected());
    server.start();
    EXPECT_TRUE(http.get("").empty() && !http.connected()) << "a request without a URL is not sent";
    server.queue("first");
    EXPECT_EQ(http.get(url), "first");
    EXPECT_EQ(http.post_json(url, "{}"), "");
    EXPECT_TRUE(http.get("").empty() && http.connected()) << "nor does it end a connection";
    EXPECT_EQ(output.lines(), texts{});
    for (int outage = 0; outage < 2; ++outage) {
        server.stop();
        EXPECT_EQ(http.post_json(url, "{}") + http.get(url), "");
        EXPECT_FALSE(http.connected());
        EXPECT_EQ(output.lines(), failed);
        server.start();
        EXPECT_TRUE(http.post_json(url, "{}").empty() && http.connected());
    }
    unsetenv("http_proxy");
}

TEST_F(http_client, keeps_one_connection_and_the_header_of_a_post) {
    http.get(url);
    http.post_json(url, R"({"a":1})");
    http.get(url);
    std::string sink = "before";
    server.queue("into the sink");
    EXPECT_EQ(http.get_with_sink(url, &sink), "");
    EXPECT_EQ(sink, "into the sink");
    server.queue("beside the sink");
    EXPECT_EQ(http.get(url), "beside the sink");
    http.set_shutdown_test([] { return true; });
    EXPECT_EQ(http.get(url), "");
    EXPECT_FALSE(http.post_json_unless_shutting_down(url, "left out"));
    http.post_json(url, "sent");
    texts requests;
    for (const peers::http_request& one : server.requests()) {
        requests.push_back(one.method + " " + one.header("Content-Type") + " " + one.body);
        EXPECT_EQ(one.remote_port, server.requests().front().remote_port);
    }
    const std::string get = "GET application/json ";
    EXPECT_EQ(requests, (texts{"GET  ", R"(POST application/json {"a":1})", get, get, get,
                               "POST application/json sent"}));

    std::string target;
    char one[] = "one";
    char two[] = "two";
    EXPECT_EQ(curl_http::http_client::curl_callback(one, 1, 3, &target), 3U);
    EXPECT_EQ(curl_http::http_client::curl_callback(two, 3, 1, &target), 3U);
    EXPECT_EQ(curl_http::http_client::curl_callback(nullptr, 2, 3, &target), 6U);
    EXPECT_EQ(target, "two");
}

TEST_F(http_client, takes_what_a_server_may_answer) {
    texts answers;
    texts bodies; // of those that end an exchange
    const auto text_of = [](const json::value& written) {
        const std::string large(16380, 'x'); // with its head it fills more than one usual buffer
        return std::regex_replace(wire_text(written), std::regex("LARGE"), large);
    };
    for_each_case("http/replies", [&](const json::value& one) {
        answers.push_back(text_of(one["answer"]));
        if (json::find(one, "body") != nullptr) {
            bodies.push_back(text_of(one["body"]));
        }
    });
    const descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(bind_address(listener.get(), "127.0.0.1", 0) && listen(listener.get(), 1) == 0);
    std::future<texts> served = std::async(std::launch::async, serve, listener.get(), answers);
    captured_output output;
    {
        curl_http::http_client client(1);
        client.set_port(local_port(listener.get()));
        for (const std::string& body : bodies) {
            EXPECT_EQ(client.get("http://127.0.0.1:/a"), body);
            EXPECT_EQ(client.connected(), body != "cut") << body;
        }
    }
    EXPECT_EQ(output.lines(), texts{std::string("request to http://127.0.0.1:/a failed: ") +
                                    curl_easy_strerror(CURLE_PARTIAL_FILE)});
    texts requests(answers.size(), "GET /a HTTP/1.1");
    requests[6] = "GET /new HTTP/1.1";
    shutdown(listener.get(), SHUT_RDWR); // in case that no request came
    EXPECT_EQ(served.get(), requests);
}

TEST_F(http_client, each_operation_has_its_own_time_out) {
    using client = curl_http::http_client;
    server.set_silent(true);
    std::string sink;
    const struct {
        curl_http::timeouts bounds;
        std::function<void(client&)> request;
    } rows[] = {
        {{100ms, 5s, 5s}, [&](client& asked) { asked.post_json(url, "{}"); }},
        {{100ms, 5s, 5s}, [&](client& asked) { asked.post_json_unless_shutting_down(url, "{}"); }},
        {{5s, 100ms, 5s}, [&](client& asked) { asked.get(url); }},
        {{5s, 5s, 100ms}, [&](client& asked) { asked.get_with_sink(url, &sink); }},
    };
    for (const auto& row : rows) {
        client asked(server.port(), row.bounds);
        const stopwatch watch;
        row.request(asked);
        EXPECT_GE(watch.elapsed(), 100ms);
        EXPECT_LT(watch.elapsed(), 4s) << &row - rows;
        EXPECT_FALSE(asked.connected());
    }
    const curl_http::timeouts defaults;
    EXPECT_EQ(std::tuple(defaults.post, defaults.get, defaults.sink), std::tuple(20s, 5s, 200s));
}

TEST_F(http_client, threads_wait_for_their_turn_and_get_their_own_replies) {
    std::atomic<int> at_once{0};
    std::atomic<bool> overlapped{false};
    peers::http_listener echo(0, 3, [&](const peers::http_request& request, const auto&) {
        overlapped = overlapped || ++at_once > 1;
        std::this_thread::sleep_for(1ms);
        --at_once;
        return peers::http_response{200, request.path};
    });
    http.set_port(echo.port());
    const auto ask = [this](const std::string& path) {
        for (int count = 0; count < 50; ++count) {
            const std::string to = "http://127.0.0.1:" + path;
            std::string sink;
            const std::string body = path == "/sink"  ? http.get_with_sink(to, &sink)
                                     : path == "/get" ? http.get(to)
                                                      : http.post_json(to, "{}");
            EXPECT_EQ(body + sink, path);
        }
    };
    ask("/get");
    std::vector<std::thread> threads;
    for (const char* const path : {"/post", "/get", "/sink"}) {
        threads.emplace_back(ask, path);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(overlapped);
}

TEST_F(http_client, a_report_goes_out_between_polls_that_are_held) {
    server.set_delay(50ms);
    std::atomic<bool> enough{false};
    std::thread poller([&] {
        while (!enough) {
            http.get(url);
        }
    });
    ASSERT_TRUE(wait_until([&] { return server.gets() > 0; }));
    for (int report = 0; report < 5; ++report) {
        const std::size_t most = server.gets() + 3;
        http.post_json(url, "{}");
        EXPECT_LE(server.gets(), most);
    }
    enough = true;
    poller.join();
}
