#include "doctor/server_checks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>

#include <curl/curl.h>

#include "doctor/text.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr long connect_timeout_ms = 5000;

using error_text = std::array<char, CURL_ERROR_SIZE>;

/// libcurl, set up for as long as the object lives.
struct curl_library {
    curl_library() { curl_global_init(CURL_GLOBAL_ALL); }
    ~curl_library() { curl_global_cleanup(); }
    curl_library(const curl_library&) = delete;
    curl_library& operator=(const curl_library&) = delete;
};

struct handle_deleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using curl_handle = std::unique_ptr<CURL, handle_deleter>;

struct explanation {
    finding_code code;
    const char* remedy;
    const char* start = ""; // of what is said, before libcurl's reason
};

explanation explain_refusal(CURL* handle) {
    long error = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &error);
    switch (error) {
    case ENETUNREACH:
        return {"server_no_route"_code,
                "check this machine's own address and its default route (ip route)",
                "this machine has no route to the server: "};
    case EHOSTUNREACH:
        return {"server_unreachable"_code,
                "check that the server is on and that \"server\" has its address; if so, check the "
                "routers on the way (traceroute)",
                "the network does not find the server: "};
    default:
        return {"server_refuses"_code,
                "start the REST server, correct \"server\" or \"http_port\", or open the port in "
                "the firewall"};
    }
}

explanation explain(CURL* handle, CURLcode result) {
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return {"server_unresolved"_code,
                "check the name in \"server\" and this machine's name resolution "
                "(/etc/resolv.conf), or write an address"};
    case CURLE_OPERATION_TIMEDOUT:
        return {
            "server_timeout"_code,
            "check \"server\", \"http_port\", this machine's route and name resolution, and the "
            "firewalls on the way"};
    case CURLE_COULDNT_CONNECT:
        return explain_refusal(handle);
    default:
        return {"server_unusable"_code, "correct \"server\": write only the host name or address"};
    }
}

CURLcode connect(CURL* handle, const std::string& server, const std::string& port,
                 error_text& error) {
    // Numbers that are not a port go to libcurl, too: it treats them as it does the daemon's.
    const auto number =
        static_cast<long>(std::min<std::uint64_t>(csi_receiver::parse_decimal(port), UINT32_MAX));
    curl_easy_setopt(handle, CURLOPT_URL, ("http://" + server + ":/").c_str());
    curl_easy_setopt(handle, CURLOPT_PORT, number);
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, connect_timeout_ms);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error.data());
#if LIBCURL_VERSION_NUM >= 0x075700
    // After the time-out, do not wait for a silent name server.
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
#endif
    return curl_easy_perform(handle);
}

/// "127.0.0.1 port 8090": where the connection went.
std::string peer_of(CURL* handle) {
    char* address = nullptr;
    long port = 0;
    curl_easy_getinfo(handle, CURLINFO_PRIMARY_IP, &address);
    curl_easy_getinfo(handle, CURLINFO_PRIMARY_PORT, &port);
    return std::string(address) + " port " + std::to_string(port);
}

} // namespace

void check_server_port(const std::string& server, const std::string& port, report& findings) {
    const curl_library library;
    const curl_handle handle(curl_easy_init());
    error_text error{};
    const CURLcode result = connect(handle.get(), server, port, error);
    const std::string where = "REST server " + printable(server);
    if (result == CURLE_OK) {
        findings.ok("server_accepts_connection"_code, where,
                    "accepts a TCP connection at " + peer_of(handle.get()) +
                        "; no request was sent, so whether it answers is unknown");
        return;
    }
    const std::string reason = error[0] != '\0' ? error.data() : curl_easy_strerror(result);
    const auto [code, remedy, start] = explain(handle.get(), result);
    findings.fail(code, where, start + reason, remedy);
}

} // namespace csi_doctor
