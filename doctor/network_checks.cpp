#include "doctor/network_checks.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include <curl/curl.h>

#include "client/fusion.h"
#include "doctor/core_checks.h"
#include "doctor/host_name_checks.h"
#include "doctor/routing_checks.h"
#include "doctor/udp_sockets.h"
#include "platform/socket.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr long connect_timeout_ms = 5000;
constexpr const char* default_http_port = "8090";

std::string value_of(const settings& from, const char* key) {
    const auto found = from.find(key);
    return found == from.end() ? "" : found->second.value;
}

void check_core_services(const settings& from, report& to) {
    csi_receiver::routing_table table;
    read_routing(value_of(from, "routing"), table);
    for (const csi_receiver::zorvin_entry& zorvin : table.zorvins()) {
        // An address of another kind was told with its line, and there is nobody to ask.
        if (csi_receiver::is_inet_address(zorvin.address)) {
            check_core_service(zorvin, &zorvin == &table.zorvins().back(), to);
        }
    }
}

/// The daemon's peer takes any datagram for a command, so that it is not asked: the kernel is.
void check_fusion_daemon(report& to) {
    std::ifstream sockets("/proc/net/udp");
    std::ostringstream list;
    list << sockets.rdbuf();
    const std::string port = std::to_string(csi_receiver::fusion_port);
    if (!sockets) {
        to.warn("fusion daemon", "the kernel does not tell who listens on UDP port " + port,
                "check that the fusion daemon runs");
        return;
    }
    std::ifstream dual("/proc/net/udp6"); // a socket for IPv6 takes IPv4 datagrams, too
    list << dual.rdbuf();
    if (hears_loopback(list.str(), csi_receiver::fusion_port)) {
        to.ok("fusion daemon", "something listens on UDP port " + port);
        return;
    }
    to.fail("fusion daemon",
            "nothing listens on 127.0.0.1 UDP port " + port +
                ": the engines that are offered to the server fail",
            "start the fusion daemon on this machine, or delete fusion=yes");
}

const char* remedy_of(CURLcode result) {
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return "check the name in \"server\" and this machine's name resolution "
               "(/etc/resolv.conf), or write an address";
    case CURLE_OPERATION_TIMEDOUT:
        return "check \"server\", \"http_port\", this machine's route and name resolution, and "
               "firewalls on the way";
    case CURLE_COULDNT_CONNECT:
        return "start the REST server, correct \"server\" or \"http_port\", or let the firewall "
               "pass the port";
    default:
        return "correct \"server\": write only the host name or the address";
    }
}

struct curl_closer {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};

/// Connects as the daemon would, and asks for nothing: a poll would take a command from the queue.
void check_server_port(const std::string& server, const std::string& port_text, report& to) {
    const auto port = static_cast<long>(
        std::min<std::uint64_t>(csi_receiver::parse_decimal(port_text), UINT32_MAX));
    const std::unique_ptr<CURL, curl_closer> handle(curl_easy_init());
    std::array<char, CURL_ERROR_SIZE> error{};
    curl_easy_setopt(handle.get(), CURLOPT_URL, ("http://" + server + ":/").c_str());
    curl_easy_setopt(handle.get(), CURLOPT_PORT, port); // refuses what it refuses the daemon
    curl_easy_setopt(handle.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT_MS, connect_timeout_ms);
    curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, error.data());
#if LIBCURL_VERSION_NUM >= 0x075700
    curl_easy_setopt(handle.get(), CURLOPT_QUICK_EXIT,
                     1L); // does not wait for a silent name server
#endif
    const CURLcode result = curl_easy_perform(handle.get());
    const std::string where = "REST server " + printable(server);
    if (result == CURLE_OK) {
        char* address = nullptr;
        long real_port = 0;
        curl_easy_getinfo(handle.get(), CURLINFO_PRIMARY_IP, &address);
        curl_easy_getinfo(handle.get(), CURLINFO_PRIMARY_PORT, &real_port);
        to.ok(where, std::string("accepts a TCP connection at ") + address + " port " +
                         std::to_string(real_port) +
                         "; nothing was requested, so whether it answers requests is not known");
        return;
    }
    const std::string detail = error[0] != '\0' ? error.data() : curl_easy_strerror(result);
    to.fail(where, detail, remedy_of(result));
}

void check_server(const settings& from, report& to) {
    const std::string server = value_of(from, "server");
    if (server.empty() || judge_server(server).severity == level::fail) {
        return; // told already
    }
    const std::string port = value_of(from, "http_port");
    curl_global_init(CURL_GLOBAL_ALL);
    check_server_port(server, port.empty() ? default_http_port : port, to);
    curl_global_cleanup();
}

} // namespace

void check_network(const settings& from, report& to) {
    check_core_services(from, to);
    if (value_of(from, "fusion") == "yes") {
        check_fusion_daemon(to);
    }
    check_server(from, to);
}

} // namespace csi_doctor
