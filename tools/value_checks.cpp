#include "tools/value_checks.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr std::string_view decimal_digits = "0123456789";
constexpr std::string_view hexadecimal_digits = "0123456789abcdefABCDEF";

bool is_one_of(const std::string& value, std::initializer_list<const char*> words) {
    return std::find(words.begin(), words.end(), value) != words.end();
}

bool consists_of(const std::string& text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string::npos;
}

bool starts_with(const std::string& text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

void check_uuid(const std::string& value, const std::string& where, report& to) {
    const std::string fault = identifier_fault(value);
    if (fault.empty()) {
        std::string decimal = value;
        csi_receiver::hex_id_to_decimal(decimal);
        to.ok(where, "the server knows this access point as " + decimal);
    } else if (consists_of(value, decimal_digits)) {
        to.warn(where, quoted(value) + " " + fault, identifier_remedy);
    } else {
        to.fail(where, quoted(value) + " " + fault, identifier_remedy);
    }
}

void check_server(const std::string& value, const std::string& where, report& to) {
    const std::string fault = server_fault(value);
    if (!fault.empty()) {
        to.fail(where, quoted(value) + " " + fault + ": every request fails",
                "write only the host name or the address; the port goes into http_port");
        return;
    }
    to.ok(where, "the REST server is " + quoted(value));
}

void check_http_port(const std::string& value, const std::string& where, report& to) {
    constexpr std::uint64_t largest_port = 65535;
    const std::uint64_t port = csi_receiver::parse_decimal(value);
    const std::string remedy =
        "write the REST server's TCP port, 1 to 65535, or delete the line for 8090";
    if (port == 0 || port > largest_port) {
        to.fail(where,
                quoted(value) + " is no TCP port: the daemon silently uses port 80, whatever its "
                                "log says",
                remedy);
    } else if (!consists_of(value, decimal_digits)) {
        to.warn(where, quoted(value) + " is taken as " + std::to_string(port), remedy);
    } else {
        to.ok(where, "TCP port " + std::to_string(port));
    }
}

void check_api(const std::string& value, const std::string& where, report& to) {
    if (is_one_of(value, {"v2", "v3"})) {
        to.ok(where, "version " + value + " of the REST API");
        return;
    }
    to.fail(where, quoted(value) + " is unknown: the daemon ends with \"API version unsupported\"",
            "write exactly v2 or v3, in lower case");
}

void check_fusion(const std::string& value, const std::string& where, report& to) {
    if (value == "yes") {
        to.ok(where, "the engines cpd and softSecurity are offered");
    } else if (is_one_of(value, {"no", "off", "false", "0"})) {
        to.ok(where, "the fusion daemon's engines are not offered");
    } else {
        to.warn(where, quoted(value) + " does not offer the fusion daemon's engines: only yes does",
                "write fusion=yes, or delete the line");
    }
}

void check_csi_file(const std::string& value, const std::string& where, report& to) {
    if (is_one_of(value, {"no", "off", "false", "0", "none", "yes", "on", "true", "1"})) {
        to.warn(where, "core services are asked to save CSI into a file named " + quoted(value),
                "write the path of the file, or delete the line to save none");
    } else {
        to.ok(where, "core services are asked to save CSI into " + quoted(value));
    }
}

void check_log(const std::string& value, const std::string& where, report& to) {
    if (value == "true") {
        to.ok(where, "the log goes to a file");
    } else if (value == "yes") {
        to.warn(where,
                "the log goes to standard output, and with -D it is lost: standard output is "
                "closed",
                "delete the line for a log file, or write log=no for standard output");
    } else if (is_one_of(value, {"no", "off", "false", "0"})) {
        to.ok(where, "the log goes to standard output");
    } else {
        to.warn(where,
                quoted(value) + " sends the log to standard output: only the word true, or no "
                                "such line, sends it to a file",
                value.find('/') != std::string::npos
                    ? "delete the line, and write the directory into log_path"
                    : "delete the line for a log file, or write log=no for standard output");
    }
}

void check_log_path(const std::string& value, const std::string& where, report& to) {
    if (value.front() != '/') {
        to.warn(where, quoted(value) + " counts from where the daemon works, with -D from /",
                "write it from the root: log_path=/...");
    }
}

const struct {
    const char* key;
    void (*check)(const std::string& value, const std::string& where, report& to);
} value_checks[] = {
    {"zorvin_uuid", check_uuid}, {"server", check_server},     {"http_port", check_http_port},
    {"api", check_api},          {"fusion", check_fusion},     {"csi_file", check_csi_file},
    {"log", check_log},          {"log_path", check_log_path},
};

} // namespace

std::string identifier_fault(const std::string& id) {
    if (starts_with(id, "0X")) {
        return "is not taken for hexadecimal, because the X is in upper case";
    }
    const bool hexadecimal = starts_with(id, "0x");
    const std::string digits = hexadecimal ? id.substr(2) : id;
    std::string decimal = id;
    csi_receiver::hex_id_to_decimal(decimal);
    const std::string sent = std::to_string(csi_receiver::parse_decimal(decimal));
    if (!consists_of(digits, hexadecimal ? hexadecimal_digits : decimal_digits)) {
        const bool blank = id.find_first_of(" \t") != std::string::npos;
        return (blank ? "has a blank in it: the server is told "
                      : "is no number: the server is told ") +
               sent;
    }
    const std::string significant =
        digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (hexadecimal ? significant.size() > 16 : sent != significant) {
        return "does not fit 64 bits: the server is told " + sent;
    }
    if (!hexadecimal && significant != digits) {
        return "has leading zeros: the server says " + sent + ", which is not the same text";
    }
    return {};
}

std::string server_fault(const std::string& server) {
    if (starts_with(server, "https://")) {
        return "has a scheme, and the daemon speaks only plain HTTP";
    }
    if (server.find("://") != std::string::npos) {
        return "has a scheme";
    }
    if (server.find_first_of(" \t") != std::string::npos) {
        return "has a blank in it";
    }
    if (server.find('/') != std::string::npos) {
        return "has a path";
    }
    const bool bracketed = server.front() == '[' && server.back() == ']';
    const auto colons = std::count(server.begin(), server.end(), ':');
    if (!bracketed && colons > 0) {
        return colons == 1 ? "has a port" : "looks like IPv6, which needs brackets around it";
    }
    const bool odd = std::any_of(server.begin(), server.end(), [](char c) {
        return c <= ' ' || c > '~' ||
               std::string_view("?@\\\"'<>,;&%").find(c) != std::string_view::npos;
    });
    return odd && !bracketed ? "has a character that no host name has" : "";
}

bool logs_to_file(const settings& from) {
    const auto log = from.find("log");
    return log == from.end() || log->second.value == "true";
}

void check_values(const settings& from, report& to) {
    for (const auto& one : value_checks) {
        const auto found = from.find(one.key);
        if (found != from.end()) {
            one.check(found->second.value, place(found->second.line, one.key), to);
        }
    }
}

} // namespace csi_doctor
