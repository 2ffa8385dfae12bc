#include "doctor/host_name_checks.h"

#include <algorithm>
#include <cstddef>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "doctor/addresses.h"
#include "doctor/text.h"
#include "platform/socket.h"

namespace csi_doctor {
namespace {

constexpr const char* write_host_only =
    "write only the host name or address; the port goes into http_port";
constexpr const char* host_name_characters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";

finding failure(finding_code code, const std::string& what,
                const std::string& remedy = write_host_only) {
    return {level::fail, code, "", what + ": every request fails", remedy};
}

finding wrong_target(finding_code code, const std::string& what, const std::string& target) {
    return {level::fail, code, "", what + ": requests go to " + target, write_host_only};
}

finding warning(finding_code code, const std::string& what, const std::string& remedy) {
    return {level::warn, code, "", what, remedy};
}

bool is_ipv6(const std::string& text) {
    in6_addr parsed{};
    const std::string address = text.substr(0, text.find('%')); // the interface follows a %
    return inet_pton(AF_INET6, address.c_str(), &parsed) == 1;
}

std::optional<finding> check_documentation(const std::string& address) {
    const std::string block(documentation_block(address));
    if (block.empty()) {
        return std::nullopt;
    }
    return warning("server_documentation"_code, "is an address for documentation (" + block + ")",
                   "write the name or address of your REST server");
}

std::optional<finding> check_brackets(const std::string& host) {
    const std::size_t end = host.find(']');
    if (end != std::string::npos && end + 1 < host.size() && host[end + 1] == ':') {
        return failure("server_with_port"_code, "has a port");
    }
    if (end == std::string::npos || end + 1 != host.size() || !is_ipv6(host.substr(1, end - 1))) {
        return failure("server_brackets"_code,
                       "is not a host name, as only an IPv6 address may stand in brackets");
    }
    return check_documentation(host.substr(1, end - 1));
}

finding explain_colons(const std::string& host) {
    if (is_ipv6(host)) {
        return failure("server_ipv6_without_brackets"_code, "is an IPv6 address without brackets",
                       "write [" + printable(host) + "]");
    }
    if (std::count(host.begin(), host.end(), ':') > 1) {
        return failure("server_several_colons"_code,
                       "has several colons, but is not an IPv6 address");
    }
    return host.back() == ':' ? failure("server_colon_at_end"_code, "ends with a colon")
                              : failure("server_with_port"_code, "has a port");
}

std::optional<finding> check_host(const std::string& host) {
    if (host.empty()) {
        return failure("server_without_host"_code, "has no host name");
    }
    if (host.front() == '[') {
        return check_brackets(host);
    }
    if (host.find(':') != std::string::npos) {
        return explain_colons(host);
    }
    const std::size_t odd = host.find_first_not_of(host_name_characters);
    if (odd != std::string::npos) {
        return finding{level::fail, "server_odd_character"_code, "",
                       "is not a host name: it contains " + in_quotes(host.substr(odd, 1)),
                       write_host_only};
    }
    if (host.find_first_not_of("0123456789.") == std::string::npos &&
        !csi_receiver::is_inet_address(host)) {
        return warning("server_not_ipv4"_code,
                       "is not an IPv4 address: libcurl may read it as a different one",
                       "write the address as four numbers from 0 to 255, separated by dots");
    }
    return check_documentation(host);
}

} // namespace

std::optional<finding> check_host_name(const std::string& server) {
    const std::size_t scheme = server.find("://");
    if (scheme != std::string::npos) {
        const std::string name = server.substr(0, scheme);
        const bool https = name == "https";
        return wrong_target("server_with_scheme"_code,
                            "begins with " + in_quotes(name + "://") +
                                (https ? ", but the daemon speaks only plain HTTP" : ""),
                            "a host named " + in_quotes(name));
    }
    if (server.find_first_of(" \t") != std::string::npos) {
        return failure("server_white_space"_code, "contains white space");
    }
    const std::size_t path = server.find_first_of("/?");
    if (path != std::string::npos) {
        return wrong_target("server_with_path"_code,
                            server[path] == '/' ? "has a path" : "has a query", "the wrong URL");
    }
    const std::size_t user = server.rfind('@');
    if (user == std::string::npos) {
        return check_host(server);
    }
    std::optional<finding> fault = check_host(server.substr(user + 1));
    return fault ? fault
                 : warning("server_with_user"_code,
                           "has a user name: every request carries the text before the @",
                           write_host_only);
}

} // namespace csi_doctor
