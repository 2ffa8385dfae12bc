// The HTTP transport, against a played server on real sockets.
#include <atomic>

#include <gtest/gtest.h>

#include "http/http_client.h"
#include "peers/http_listener.h"
#include "peers/rest_server.h"
#include "platform/descriptor.h"
#include "platform/socket.h"
#include "support/fixtures.h"

using namespace csi_receiver;
using namespace std::chrono_literals;
using texts = std::vector<std::string>;

namespace {

/// Answers the requests of one connection with these texts as they stand, then closes it. For
/// requests without a body.
class raw_server {
public:
    explicit raw_server(const texts& answers) {
        EXPECT_TRUE(bind_address(listener_.get(), "127.0.0.1", 0));
        EXPECT_EQ(listen(listener_.get(), 1), 0);
        thread_ = std::thread([this, answers] {
            std::string address;
            std::uint16_t port = 0;
            std::vector<char> buffer(4096);
            const descriptor connection(accept_peer(listener_.get(), address, port));
            shutdown(listener_.get(), SHUT_RDWR); // there is no second one
            for (const std::string& answer : answers) {
                const ssize_t count = recv_into(connection.get(), buffer, 0);
                const std::string request(buffer.data(), count > 0 ? std::size_t(count) : 0);
                requests_.push_back(request.substr(0, request.find('\r')));
                send_text(connection.get(), answer, MSG_NOSIGNAL);
            }
        });
    }
    ~raw_server() { static_cast<void>(end()); }
    raw_server(const raw_server&) = delete;
    raw_server& operator=(const raw_server&) = delete;

    [[nodiscard]] std::uint16_t port() const { return local_port(listener_.get()); }

    /// The first lines of the requests.
    texts end() {
        shutdown(listener_.get(), SHUT_RDWR);
        if (thread_.joinable()) {
            thread_.join();
        }
        return requests_;
    }

private:
    const descriptor listener_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    texts requests_;
    std::thread thread_;
};

std::string http_text(const std::string& status, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

} // namespace

TEST(http_client, logs_each_outage_once) {
    peers::journal journal;
    peers::rest_server server(journal);
    setenv("http_proxy", "http://127.0.0.1:1/", 1); // nothing is taken from the environment
    captured_output output;
    curl_http::http_client http(server.port());
    const std::string url = "http://127.0.0.1:/v2/zorvins/1/msg";
    const std::string failed =
        "request to " + url + " failed: " + curl_easy_strerror(CURLE_COULDNT_CONNECT);

    server.stop();
    EXPECT_EQ(http.get(url), "");
    EXPECT_FALSE(http.connected());
    server.start();
    EXPECT_EQ(http.get(""), "");
    EXPECT_FALSE(http.connected()) << "a request without a URL is not sent";
    server.queue("first");
    EXPECT_EQ(http.get(url), "first");
    EXPECT_EQ(http.post_json(url, "{}"), "");
    EXPECT_EQ(http.get(""), "");
    EXPECT_TRUE(http.connected()) << "nor does it end a connection";
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
    unsetenv("http_proxy");
}

TEST(http_client, keeps_one_connection_and_the_header_of_a_post) {
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
    server.queue("beside the sink");
    EXPECT_EQ(http.get(url), "beside the sink");
    const std::vector<peers::http_request> requests = server.requests();
    ASSERT_EQ(requests.size(), 5U);
    EXPECT_EQ(requests[0].header("Content-Type"), "");
    EXPECT_EQ(requests[1].method + requests[2].method + requests[3].method, "POSTGETGET");
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
    EXPECT_EQ(server.requests().size(), 6U);
    EXPECT_EQ(server.requests().back().body, "sent");
}

TEST(http_client, takes_what_a_server_may_answer) {
    const std::string large(16380, 'x'); // with its head it fills more than one usual buffer
    const std::string unread = "part of an exchange that goes on";
    const struct {
        std::string answer;
        std::string body;
    } rows[] = {
        {http_text("404 Not Found", "gone"), "gone"},
        {http_text("500 Error", ""), ""},
        {"HTTP/1.1 100 Continue\r\n\r\n" + http_text("200 OK", "after it"), "after it"},
        {http_text("200 OK", large), large},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n2\r\nbc\r\n0\r\n\r\n",
         "bc"},
        {http_text("302 Found\r\nLocation: /new", "old"), unread},
        {http_text("200 OK", "new"), "new"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\ncut", "cut"}};
    texts answers;
    for (const auto& row : rows) {
        answers.push_back(row.answer);
    }
    raw_server server(answers);
    captured_output output;
    {
        curl_http::http_client http(1);
        http.set_port(server.port());
        for (const auto& row : rows) {
            if (row.body != unread) {
                EXPECT_EQ(http.get("http://127.0.0.1:/a"), row.body);
                EXPECT_EQ(http.connected(), row.body != "cut") << row.body;
            }
        }
    }
    EXPECT_EQ(output.lines(), texts{std::string("request to http://127.0.0.1:/a failed: ") +
                                    curl_easy_strerror(CURLE_PARTIAL_FILE)});
    texts requests(std::size(rows), "GET /a HTTP/1.1");
    requests[6] = "GET /new HTTP/1.1";
    EXPECT_EQ(server.end(), requests);
}

TEST(http_client, each_operation_has_its_own_time_out) {
    using client = curl_http::http_client;
    peers::journal journal;
    peers::rest_server server(journal);
    server.set_silent(true);
    const std::string url = "http://127.0.0.1:/v2/zorvins/1/msg";
    std::string sink;
    const struct {
        curl_http::timeouts bounds;
        std::function<void(client&)> request;
    } rows[] = {
        {{100ms, 5s, 5s}, [&](client& http) { http.post_json(url, "{}"); }},
        {{100ms, 5s, 5s}, [&](client& http) { http.post_json_unless_shutting_down(url, "{}"); }},
        {{5s, 100ms, 5s}, [&](client& http) { http.get(url); }},
        {{5s, 5s, 100ms}, [&](client& http) { http.get_with_sink(url, &sink); }},
    };
    for (const auto& row : rows) {
        client http(server.port(), row.bounds);
        const stopwatch watch;
        row.request(http);
        EXPECT_GE(watch.elapsed(), 100ms);
        EXPECT_LT(watch.elapsed(), 4s) << &row - rows;
        EXPECT_FALSE(http.connected());
    }
    const curl_http::timeouts defaults;
    EXPECT_EQ(defaults.post, 20s);
    EXPECT_EQ(defaults.get, 5s);
    EXPECT_EQ(defaults.sink, 200s);
}

TEST(http_client, threads_wait_for_their_turn_and_get_their_own_replies) {
    std::atomic<int> at_once{0};
    std::atomic<bool> overlapped{false};
    peers::http_listener echo(0, 3, [&](const peers::http_request& request, const auto&) {
        overlapped = overlapped || ++at_once > 1;
        std::this_thread::sleep_for(1ms);
        --at_once;
        return peers::http_response{200, request.path};
    });
    curl_http::http_client http(echo.port());
    const auto ask = [&http](const std::string& path) {
        for (int count = 0; count < 50; ++count) {
            const std::string url = "http://127.0.0.1:" + path;
            std::string sink;
            const std::string body = path == "/sink"  ? http.get_with_sink(url, &sink)
                                     : path == "/get" ? http.get(url)
                                                      : http.post_json(url, "{}");
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
