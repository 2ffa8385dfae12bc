#include "doctor/value_checks.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "doctor/host_name_checks.h"
#include "doctor/identity.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr std::string_view decimal_digits = "0123456789";

bool is_one_of(const std::string& value, std::initializer_list<const char*> words) {
    return std::find(words.begin(), words.end(), value) != words.end();
}

bool consists_of(const std::string& text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string::npos;
}

void check_uuid(const std::string& value, const std::string& where, report& to) {
    const identity id = read_identity(value);
    if (id.fault.empty()) {
        to.ok(where, "the server knows this access point as " + id.text);
        return;
    }
    const std::string effect = id.text == id.number ? ": the server is told " + id.number
                                                    : ": messages say " + id.number +
                                                          ", the URL says " + printable(id.text);
    const std::string what = quoted(value) + " " + id.fault + effect;
    if (id.leading_zeros) {
        to.warn(where, what, identity_remedy);
    } else {
        to.fail(where, what, identity_remedy);
    }
}

void check_server(const std::string& value, const std::string& where, report& to) {
    const finding found = judge_server(value);
    const std::string what = quoted(value) + " " + found.what;
    if (found.severity == level::ok) {
        to.ok(where, "the REST server is " + quoted(value));
    } else if (found.severity == level::warn) {
        to.warn(where, what, found.remedy);
    } else {
        to.fail(where, what, found.remedy);
    }
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
        to.ok(where, "the log goes to a file; with -D, standard output stays open as well");
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
    const std::string directory = value.substr(0, value.find_last_not_of('/') + 1);
    constexpr std::string_view ending = ".log";
    if (directory.size() > ending.size() &&
        directory.compare(directory.size() - ending.size(), ending.size(), ending) == 0) {
        to.warn(where, "log_path is a directory; the file in it is csi_receiver.log",
                "write the directory alone: log_path=" + printable(parent_directory(directory)));
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

std::string parent_directory(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
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
