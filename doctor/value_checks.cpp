#include "doctor/value_checks.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "doctor/host_name_checks.h"
#include "doctor/identity.h"
#include "doctor/paths.h"
#include "doctor/text.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

bool is_one_of(const std::string& value, std::initializer_list<const char*> words) {
    return std::find(words.begin(), words.end(), value) != words.end();
}

void check_uuid(const std::string& value, const std::string& where, report& findings) {
    const identity id = parse_identity(value);
    if (id.fault == identity_fault::none) {
        findings.ok(where, "the server knows this access point as " + id.text);
        return;
    }
    const std::string effect = id.text == id.number
                                   ? "the server knows this access point as " + id.number
                                   : "the server sees " + id.number + " in messages, but " +
                                         printable(id.text) + " in URLs";
    findings.add({id.fault == identity_fault::leading_zeros ? level::warn : level::fail, where,
                  quoted(value) + " " + describe(id.fault) + ": " + effect, identity_remedy});
}

void check_server(const std::string& value, const std::string& where, report& findings) {
    const std::optional<finding> fault = check_host_name(value);
    if (fault) {
        findings.add({fault->severity, where, quoted(value) + " " + fault->what, fault->remedy});
    } else {
        findings.ok(where, "the REST server is " + quoted(value));
    }
}

void check_http_port(const std::string& value, const std::string& where, report& findings) {
    constexpr std::uint64_t max_port = 65535;
    const std::uint64_t port = csi_receiver::parse_decimal(value);
    const std::string remedy =
        "write the REST server's TCP port, 1 to 65535, or delete the line to use 8090";
    if (port == 0 || port > max_port) {
        findings.fail(where,
                      quoted(value) + " is not a TCP port: the daemon silently uses port 80, "
                                      "whatever its log says",
                      remedy);
    } else if (value.find_first_not_of("0123456789") != std::string::npos) {
        findings.warn(where, quoted(value) + " is read as " + std::to_string(port), remedy);
    } else {
        findings.ok(where, "TCP port " + std::to_string(port));
    }
}

void check_api(const std::string& value, const std::string& where, report& findings) {
    if (is_one_of(value, {"v2", "v3"})) {
        findings.ok(where, "version " + value + " of the REST API");
        return;
    }
    findings.fail(where,
                  quoted(value) +
                      " is not a version of the REST API: the daemon exits with \"API version "
                      "unsupported\"",
                  "write exactly v2 or v3, in lower case");
}

void check_fusion(const std::string& value, const std::string& where, report& findings) {
    if (value == "yes") {
        findings.ok(where, "the engines cpd and softSecurity are offered to the server");
    } else if (is_one_of(value, {"no", "off", "false", "0"})) {
        findings.ok(where, "the fusion daemon's engines are not offered to the server");
    } else {
        findings.warn(
            where,
            quoted(value) +
                " does not offer the fusion daemon's engines to the server: only yes does",
            "write fusion=yes, or delete the line");
    }
}

void check_csi_file(const std::string& value, const std::string& where, report& findings) {
    if (is_one_of(value, {"no", "off", "false", "0", "none", "yes", "on", "true", "1"})) {
        findings.warn(where, "core services are asked to save CSI to a file named " + quoted(value),
                      "write the path of the file, or delete the line if no CSI is to be saved");
    } else {
        findings.ok(where, "core services are asked to save CSI to " + quoted(value));
    }
}

void check_log(const std::string& value, const std::string& where, report& findings) {
    const std::string remedy = "delete the line to log to a file, or write log=no to log to "
                               "standard output";
    if (value == "true") {
        findings.ok(where, "the log goes to a file; with -D, standard output stays open, too");
    } else if (value == "yes") {
        findings.warn(where,
                      "the log goes to standard output, which -D closes: with -D the log is lost",
                      remedy);
    } else if (is_one_of(value, {"no", "off", "false", "0"})) {
        findings.ok(where, "the log goes to standard output");
    } else {
        findings.warn(where,
                      quoted(value) + " sends the log to standard output: it goes to a file only "
                                      "with log=true, or without a \"log\" line",
                      value.find('/') == std::string::npos
                          ? remedy
                          : "delete the line, and write the directory into log_path");
    }
}

void check_log_path(const std::string& value, const std::string& where, report& findings) {
    if (value.front() != '/') {
        findings.warn(where,
                      quoted(value) + " is relative to the daemon's working directory, which is / "
                                      "with -D",
                      "write an absolute path: log_path=/...");
    }
    const std::string directory = value.substr(0, value.find_last_not_of('/') + 1);
    constexpr std::string_view ending = ".log";
    if (directory.size() > ending.size() &&
        directory.compare(directory.size() - ending.size(), ending.size(), ending) == 0) {
        findings.warn(where, "log_path is a directory; the log file in it is csi_receiver.log",
                      "write only the directory: log_path=" +
                          printable(parent_directory(directory)));
    }
}

constexpr struct {
    const char* key;
    void (*check)(const std::string& value, const std::string& where, report& findings);
} value_checks[] = {
    {"zorvin_uuid", check_uuid}, {"server", check_server},     {"http_port", check_http_port},
    {"api", check_api},          {"fusion", check_fusion},     {"csi_file", check_csi_file},
    {"log", check_log},          {"log_path", check_log_path},
};

} // namespace

void check_values(const settings& config, report& findings) {
    for (const auto& [key, check] : value_checks) {
        const auto found = config.find(key);
        if (found != config.end()) {
            check(found->second.value, line_label(found->second.line, key), findings);
        }
    }
}

} // namespace csi_doctor
