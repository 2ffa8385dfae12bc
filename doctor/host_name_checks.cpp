#include "doctor/host_name_checks.h"

#include <algorithm>

#include <arpa/inet.h>

#include "platform/socket.h"

namespace csi_doctor {
namespace {

constexpr const char* remedy =
    "write only the host name or the address; the port goes into http_port";
constexpr const char* fails = ": every request fails";

finding fault(const std::string& what, const std::string& instead = remedy) {
    return {level::fail, {}, what, instead};
}

finding doubt(const std::string& what, const std::string& instead = remedy) {
    return {level::warn, {}, what, instead};
}

bool is_ipv6(const std::string& text) {
    in6_addr parsed{};
    const std::string address = text.substr(0, text.find('%')); // behind it: the interface
    return inet_pton(AF_INET6, address.c_str(), &parsed) == 1;
}

/// The first character that no host name has, or the text's end.
std::string::const_iterator odd_character(const std::string& text) {
    return std::find_if_not(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.';
    });
}

finding judge_brackets(const std::string& host) {
    const std::size_t end = host.find(']');
    if (end != std::string::npos && end + 1 < host.size() && host[end + 1] == ':') {
        return fault(std::string("has a port") + fails);
    }
    if (end == std::string::npos || end + 1 != host.size() || !is_ipv6(host.substr(1, end - 1))) {
        return fault(std::string("is no host name, as brackets go around an IPv6 address alone") +
                     fails);
    }
    return {level::ok, {}, {}, {}};
}

finding judge_colons(const std::string& host) {
    if (is_ipv6(host)) {
        return fault(std::string("is IPv6 without brackets") + fails,
                     "write [" + printable(host) + "]");
    }
    if (std::count(host.begin(), host.end(), ':') > 1) {
        return fault(std::string("is no host name, as it has several colons") + fails);
    }
    return fault((host.back() == ':' ? "has a colon at its end" : "has a port") +
                 std::string(fails));
}

finding judge_host(const std::string& host) {
    if (host.empty()) {
        return fault(std::string("has no host name") + fails);
    }
    if (host.front() == '[') {
        return judge_brackets(host);
    }
    if (host.find(':') != std::string::npos) {
        return judge_colons(host);
    }
    const auto odd = odd_character(host);
    if (odd != host.end()) {
        return fault("is no host name: it has the character " + quoted(std::string(1, *odd)));
    }
    if (host.find_first_not_of("0123456789.") == std::string::npos &&
        !csi_receiver::is_inet_address(host)) {
        return doubt("is no IPv4 address of four numbers up to 255: libcurl may read it as another "
                     "address",
                     "write the address as four numbers from 0 to 255 with dots between them");
    }
    return {level::ok, {}, {}, {}};
}

} // namespace

finding judge_server(const std::string& server) {
    const std::size_t scheme = server.find("://");
    if (scheme != std::string::npos) {
        return fault(std::string("has a scheme") +
                     (server.compare(0, scheme, "https") == 0
                          ? ", and the daemon speaks only plain HTTP"
                          : "") +
                     ": requests go to a host named " + quoted(server.substr(0, scheme)));
    }
    if (server.find_first_of(" \t") != std::string::npos) {
        return fault(std::string("has a blank in it") + fails);
    }
    const std::size_t path = server.find_first_of("/?");
    if (path != std::string::npos) {
        return fault(std::string(server[path] == '/' ? "has a path" : "has a query") +
                     ": requests go to another URL than the server's");
    }
    const std::size_t user = server.rfind('@');
    finding host = judge_host(user == std::string::npos ? server : server.substr(user + 1));
    if (host.severity == level::ok && user != std::string::npos) {
        return doubt("has a user name: every request carries what stands before the @");
    }
    return host;
}

} // namespace csi_doctor
