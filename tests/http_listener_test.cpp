// The HTTP server under the peers and the page: what it takes as a request, and what it sends.
#include <string>

#include <gtest/gtest.h>

#include "peers/connection.h"
#include "peers/http_listener.h"
#include "peers/wrong_answers.h"
#include "support/tcp_client.h"
#include "support/vectors.h"

using namespace std::chrono_literals;

namespace {

/// Answers with what it understood: method, path, the header "X-Test", and the body.
std::optional<peers::http_response> echo(const peers::http_request& request,
                                         const peers::connection& /*client*/) {
    if (request.path == "/hang_up") {
        return std::nullopt;
    }
    peers::http_response result;
    result.body =
        request.method + " " + request.path + " " + request.header("X-TEST") + "|" + request.body;
    result.cut = request.path == "/cut";
    result.content_type = "text/plain";
    return result;
}

/// The text, or the first text as often as the second member says, between the other two.
std::string written_text(const json::value& written) {
    if (!written.IsArray()) {
        return wire_text(written);
    }
    std::string result = wire_text(written[0]);
    for (unsigned count = 0; count < written[2].GetUint(); ++count) {
        result += wire_text(written[1]);
    }
    return result + wire_text(written[3]);
}

} // namespace

TEST(http_listener, takes_requests_as_clients_write_them) {
    const peers::http_listener server(0, 2, echo);
    for_each_case("peers/http_requests", [&](const json::value& one) {
        EXPECT_EQ(exchange(server.port(), written_text(one["sends"])), wire_text(one["gets"]));
    });
}

TEST(http_listener, asks_for_a_body_only_if_the_client_waits_to_be_asked) {
    const peers::http_listener server(0, 1, echo);
    const peers::descriptor client = connect_to(server.port());
    send_all(client, "POST /x HTTP/1.1\r\nContent-Length: 2\r\nExpect: 100-Continue\r\n\r\n");
    const std::string asked = "HTTP/1.1 100 Continue\r\n\r\n";
    std::string got(asked.size(), '\0');
    ASSERT_EQ(recv(client.get(), got.data(), got.size(), MSG_WAITALL),
              static_cast<ssize_t>(got.size()));
    EXPECT_EQ(got, asked);
    send_all(client, "hi");
    shutdown(client.get(), SHUT_WR);
    EXPECT_NE(read_all(client).find("POST /x |hi"), std::string::npos);
}

TEST(http_listener, serves_others_while_one_client_is_idle_and_ends_at_once) {
    const auto begin = std::chrono::steady_clock::now();
    {
        const peers::http_listener server(0, 2, echo);
        const peers::descriptor idle = connect_to(server.port());
        send_all(idle, "GET /half HT");
        const peers::descriptor client = connect_to(server.port());
        send_all(client, "GET / HTTP/1.0\r\n\r\n");
        EXPECT_NE(read_all(client).find("GET / |"), std::string::npos);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s); // the idle one would have had 5 s
}

TEST(http_listener, writes_responses_with_what_their_status_needs) {
    for_each_case("peers/http_responses", [](const json::value& one) {
        peers::http_response what;
        what.status = one["status"].GetInt();
        what.body = json::find_string(one, "body").value_or("");
        what.location = json::find_string(one, "location").value_or("");
        what.cut = json::find(one, "cut") != nullptr;
        for_each_member(one, "headers", [&](const char* name, const json::value& value) {
            what.headers.emplace_back(name, wire_text(value));
        });
        EXPECT_EQ(peers::format_response(what, json::find(one, "close") == nullptr),
                  wire_text(one["text"]));
    });
}

TEST(rest_server, spoils_its_responses_as_ordered) {
    const json::document cases = read_vector("peers/wrong_responses");
    for (const auto& one : cases.GetObject()) {
        peers::http_response what;
        what.body = R"({"cmd":"scan"})";
        const auto* const row = peers::find_wrong_answer(json::text_of(one.name));
        ASSERT_NE(row, nullptr) << wire_text(one.name);
        peers::spoil(row->kind, "/x", what);
        EXPECT_EQ(peers::format_response(what, true).rfind(wire_text(one.value), 0), 0U)
            << wire_text(one.name);
    }
}
