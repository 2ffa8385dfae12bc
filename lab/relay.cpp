#include "lab/relay.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "client/fusion.h"
#include "core/core_request.h"
#include "peers/sockets.h"
#include "platform/socket.h"

namespace csi_lab {
namespace {

constexpr std::size_t largest_datagram = 65507;
// As long as the daemon waits.
constexpr long get_seconds = 5;
constexpr long post_seconds = 20;

/// Sends the request from a port of its own, like the daemon. nullopt when there is no answer.
std::optional<std::string> exchange(const target& with, const std::string& request,
                                    std::chrono::milliseconds time) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(with.port);
    inet_pton(AF_INET, with.address.c_str(), &to.sin_addr);
    const peers::descriptor socket = peers::bind_udp("0.0.0.0", 0);
    const auto* const address = reinterpret_cast<const sockaddr*>(&to);
    if (connect(socket.get(), address, sizeof to) != 0 ||
        send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) {
        return std::nullopt;
    }
    const peers::waker never;
    std::string reply(largest_datagram, '\0');
    const ssize_t size = peers::wait_readable(socket, never, time)
                             ? recv(socket.get(), reply.data(), reply.size(), MSG_DONTWAIT)
                             : -1;
    if (size < 0) {
        return std::nullopt;
    }
    reply.resize(static_cast<std::size_t>(size));
    return reply;
}

void parse_address(const std::string& where, target& to) {
    const std::size_t colon = where.find(':');
    to.address = where.substr(0, colon);
    if (!csi_receiver::is_inet_address(to.address)) {
        throw std::runtime_error(to.address + " is not an IPv4 address");
    }
    if (colon == std::string::npos) {
        return;
    }
    const std::string port = where.substr(colon + 1);
    const bool is_number = !port.empty() && port.size() <= 5 &&
                           port.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long number = is_number ? std::strtoul(port.c_str(), nullptr, 10) : 0;
    if (number < 1 || number > 65535) {
        throw std::runtime_error(port + " is not a port, 1 to 65535");
    }
    to.port = static_cast<std::uint16_t>(number);
}

void parse_url(const std::string& where, target& to) {
    const std::size_t scheme_end = where.find("://");
    const bool has_scheme = scheme_end != std::string::npos;
    const std::string scheme = has_scheme ? where.substr(0, scheme_end) : "http";
    const std::string rest = has_scheme ? where.substr(scheme_end + 3) : where;
    const bool is_url = (scheme == "http" || scheme == "https") &&
                        rest.find_first_not_of('/') != std::string::npos &&
                        rest.find_first_of(" \t") == std::string::npos;
    if (!is_url) {
        throw std::runtime_error("\"" + where + "\" is not a URL such as http://192.0.2.7:8090");
    }
    to.url = scheme + "://" + rest;
    while (to.url.back() == '/') {
        to.url.pop_back();
    }
}

std::size_t append_body(const char* text, std::size_t size, std::size_t count, void* to) {
    static_cast<std::string*>(to)->append(text, size * count);
    return size * count;
}

using curl_list = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

/// Redirects are left to the daemon. nullopt when the exchange failed.
std::optional<peers::http_response> perform(CURL* curl, const std::string& url,
                                            const peers::http_request& request) {
    const curl_list headers(curl_slist_append(nullptr, "Content-Type: application/json"),
                            curl_slist_free_all);
    peers::http_response result;
    curl_easy_reset(curl); // keeps the connection open
    curl_easy_setopt(curl, CURLOPT_URL, (url + request.path).c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, request.method == "GET" ? get_seconds : post_seconds);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append_body);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &result.body);
    if (request.method == "POST") {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.c_str());
    }
    if (curl_easy_perform(curl) != CURLE_OK) {
        return std::nullopt;
    }
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    result.status = static_cast<int>(status);
    const char* location = nullptr;
    curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &location);
    result.location = location == nullptr ? "" : location;
    return result;
}

} // namespace

target parse_target(const std::string& text) {
    const std::size_t middle = text.find('=');
    target result{text.substr(0, middle), "", 0, ""};
    const std::string where = middle == std::string::npos ? "" : text.substr(middle + 1);
    if (result.peer == "core") {
        result.port = csi_receiver::core_service_port;
        parse_address(where, result);
    } else if (result.peer == "fusion") {
        result.port = csi_receiver::fusion_port;
        parse_address(where, result);
    } else if (result.peer == "server") {
        parse_url(where, result);
    } else {
        throw std::runtime_error("not core=ADDRESS, fusion=ADDRESS or server=URL: " + text);
    }
    return result;
}

std::unique_ptr<peers::datagram_peer> make_relay(peers::journal& record, const target& to,
                                                 const peers::datagram_peer::identity& self) {
    // As long as the daemon waits before it repeats the request.
    const std::chrono::milliseconds time(to.peer == "fusion"
                                             ? csi_receiver::fusion_timeouts_ms[0]
                                             : csi_receiver::core_request_timeout_ms);
    auto result = std::make_unique<peers::datagram_peer>(
        record, self, [](const std::string& /*request*/) { return std::string(); });
    result->answer_with([to, time](const std::string& request) {
        const auto reply = exchange(to, request, time);
        return std::optional(reply ? std::vector{*reply} : std::vector<std::string>());
    });
    return result;
}

server_relay::server_relay(peers::journal& record, std::string url)
    : journal_(record)
    , url_(std::move(url))
    , curl_(curl_easy_init(), curl_easy_cleanup)
    , listener_(0, 4, [this](const peers::http_request& request, const auto& /*client*/) {
        return pass_on(request);
    }) {}

std::optional<peers::http_response> server_relay::pass_on(const peers::http_request& request) {
    peers::message what = peers::message_of(request);
    journal_.record(what);
    auto response = [&] {
        const std::lock_guard<std::mutex> lock(mutex_);
        return perform(curl_.get(), url_, request);
    }();
    std::swap(what.from, what.to);
    what.text = response ? response->body : "";
    what.status = response ? response->status : 0;
    what.event = response ? "" : "timeout";
    journal_.record(what);
    return response;
}

} // namespace csi_lab
