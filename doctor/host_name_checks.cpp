#include "doctor/host_name_checks.h"

#include <algorithm>
#include <cstddef>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "doctor/text.h"
#include "platform/socket.h"

namespace csi_doctor {
namespace {

constexpr const char* write_host_only =
    "write only the host name or address; the port goes into http_port";
constexpr const char* host_name_characters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";

finding failure(const std::string& what, const std::string& remedy = write_host_only) {
    return {level::fail, {}, what + ": every request fails", remedy};
}

finding wrong_target(const std::string& what, const std::string& target) {
    return {level::fail, {}, what + ": requests go to " + target, write_host_only};
}

finding warning(const std::string& what, const std::string& remedy) {
    return {level::warn, {}, what, remedy};
}

bool is_ipv6(const std::string& text) {
    in6_addr parsed{};
    const std::string address = text.substr(0, text.find('%')); // the interface follows a %
    return inet_pton(AF_INET6, address.c_str(), &parsed) == 1;
}

std::optional<finding> check_brackets(const std::string& host) {
    const std::size_t end = host.find(']');
    if (end != std::string::npos && end + 1 < host.size() && host[end + 1] == ':') {
        return failure("has a port");
    }
    if (end == std::string::npos || end + 1 != host.size() || !is_ipv6(host.substr(1, end - 1))) {
        return failure("is not a host name, as only an IPv6 address may stand in brackets");
    }
    return std::nullopt;
}

finding explain_colons(const std::string& host) {
    if (is_ipv6(host)) {
        return failure("is an IPv6 address without brackets", "write [" + printable(host) + "]");
    }
    if (std::count(host.begin(), host.end(), ':') > 1) {
        return failure("has several colons, but is not an IPv6 address");
    }
    return failure(host.back() == ':' ? "ends with a colon" : "has a port");
}

std::optional<finding> check_host(const std::string& host) {
    if (host.empty()) {
        return failure("has no host name");
    }
    if (host.front() == '[') {
        return check_brackets(host);
    }
    if (host.find(':') != std::string::npos) {
        return explain_colons(host);
    }
    const std::size_t odd = host.find_first_not_of(host_name_characters);
    if (odd != std::string::npos) {
        return finding{level::fail,
                       {},
                       "is not a host name: it contains " + quoted(host.substr(odd, 1)),
                       write_host_only};
    }
    if (host.find_first_not_of("0123456789.") == std::string::npos &&
        !csi_receiver::is_inet_address(host)) {
        return warning("is not an IPv4 address: libcurl may read it as a different one",
                       "write the address as four numbers from 0 to 255, separated by dots");
    }
    return std::nullopt;
}

} // namespace

std::optional<finding> check_host_name(const std::string& server) {
    const std::size_t scheme = server.find("://");
    if (scheme != std::string::npos) {
        const std::string name = server.substr(0, scheme);
        const bool https = name == "https";
        return wrong_target("begins with " + quoted(name + "://") +
                                (https ? ", but the daemon speaks only plain HTTP" : ""),
                            "a host named " + quoted(name));
    }
    if (server.find_first_of(" \t") != std::string::npos) {
        return failure("contains white space");
    }
    const std::size_t path = server.find_first_of("/?");
    if (path != std::string::npos) {
        return wrong_target(server[path] == '/' ? "has a path" : "has a query", "the wrong URL");
    }
    const std::size_t user = server.rfind('@');
    if (user == std::string::npos) {
        return check_host(server);
    }
    std::optional<finding> fault = check_host(server.substr(user + 1));
    return fault ? fault
                 : warning("has a user name: every request carries the text before the @",
                           write_host_only);
}

} // namespace csi_doctor
