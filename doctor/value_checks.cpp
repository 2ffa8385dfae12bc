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
#include "doctor/sample_checks.h"
#include "doctor/text.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

bool is_one_of(const std::string& value, std::initializer_list<const char*> words) {
    return std::find(words.begin(), words.end(), value) != words.end();
}

void check_uuid(const std::string& value, const place& where, report& findings) {
    const identity id = parse_identity(value);
    if (id.fault == identity_fault::none) {
        findings.ok("zorvin_uuid_ok"_code, where,
                    "the server knows this access point as " + id.text);
        return;
    }
    const std::string effect = id.text == id.number
                                   ? "the server knows this access point as " + id.number
                                   : "the server sees " + id.number + " in messages, but " +
                                         printable(id.text) + " in URLs";
    const bool zeros = id.fault == identity_fault::leading_zeros;
    findings.add({zeros ? level::warn : level::fail,
                  zeros ? "zorvin_uuid_leading_zeros"_code : "zorvin_uuid_invalid"_code, where,
                  in_quotes(value) + " " + describe(id.fault) + ": " + effect, identity_remedy});
}

void check_server(const std::string& value, const place& where, report& findings) {
    const std::optional<finding> fault = check_host_name(value);
    if (fault) {
        findings.add({fault->severity, fault->code, where, in_quotes(value) + " " + fault->what,
                      fault->remedy});
    } else {
        findings.ok("server_ok"_code, where, "the REST server is " + in_quotes(value));
    }
}

void check_http_port(const std::string& value, const place& where, report& findings) {
    constexpr std::uint64_t max_port = 65535;
    const std::uint64_t port = csi_receiver::parse_decimal(value);
    const std::string remedy =
        "write the REST server's TCP port, 1 to 65535, or delete the line to use 8090";
    if (port == 0 || port > max_port) {
        findings.fail("http_port_invalid"_code, where,
                      in_quotes(value) + " is not a TCP port: the daemon silently uses port 80, "
                                         "whatever its log says",
                      remedy);
    } else if (value.find_first_not_of("0123456789") != std::string::npos) {
        findings.warn("http_port_trailing_text"_code, where,
                      in_quotes(value) + " is read as " + std::to_string(port), remedy);
    } else {
        findings.ok("http_port_ok"_code, where, "TCP port " + std::to_string(port));
    }
}

void check_api(const std::string& value, const place& where, report& findings) {
    if (is_one_of(value, {"v2", "v3"})) {
        findings.ok("api_ok"_code, where, "version " + value + " of the REST API");
        return;
    }
    findings.fail("api_unknown"_code, where,
                  in_quotes(value) +
                      " is not a version of the REST API: the daemon exits with \"API version "
                      "unsupported\"",
                  "write exactly v2 or v3, in lower case");
}

void check_fusion(const std::string& value, const place& where, report& findings) {
    if (value == "yes") {
        findings.ok("fusion_on"_code, where,
                    "the engines cpd and softSecurity are offered to the server");
    } else if (is_one_of(value, {"no", "off", "false", "0"})) {
        findings.ok("fusion_off"_code, where,
                    "the fusion daemon's engines are not offered to the server");
    } else {
        findings.warn(
            "fusion_not_yes"_code, where,
            in_quotes(value) +
                " does not offer the fusion daemon's engines to the server: only yes does",
            "write fusion=yes, or delete the line");
    }
}

void check_csi_file(const std::string& value, const place& where, report& findings) {
    if (is_one_of(value, {"no", "off", "false", "0", "none", "yes", "on", "true", "1"})) {
        findings.warn("csi_file_switch"_code, where,
                      "core services are asked to save CSI to a file named " + in_quotes(value),
                      "write the path of the file, or delete the line if no CSI is to be saved");
    } else if (value.front() != '/') {
        findings.warn("csi_file_relative"_code, where,
                      in_quotes(value) +
                          " is relative to the working directory of each core service",
                      "write an absolute path: csi_file=/...");
    } else {
        findings.ok("csi_file_ok"_code, where,
                    "core services are asked to save CSI to " + in_quotes(value));
    }
}

void check_log(const std::string& value, const place& where, report& findings) {
    const std::string remedy = "delete the line to log to a file, or write log=no to log to "
                               "standard output";
    if (value == "true") {
        findings.ok("log_to_file"_code, where,
                    "the log goes to a file; with -D, standard output stays open, too");
    } else if (value == "yes") {
        findings.warn("log_yes"_code, where,
                      "the log goes to standard output, which -D closes: with -D the log is lost",
                      remedy);
    } else if (is_one_of(value, {"no", "off", "false", "0"})) {
        findings.ok("log_to_stdout"_code, where, "the log goes to standard output");
    } else {
        findings.warn("log_other_value"_code, where,
                      in_quotes(value) +
                          " sends the log to standard output: it goes to a file only "
                          "with log=true, or without a \"log\" line",
                      value.find('/') == std::string::npos
                          ? remedy
                          : "delete the line, and write the directory into log_path");
    }
}

void check_log_path(const std::string& value, const place& where, report& findings) {
    if (value.front() != '/') {
        findings.warn("log_path_relative"_code, where,
                      in_quotes(value) +
                          " is relative to the daemon's working directory, which is / "
                          "with -D",
                      "write an absolute path: log_path=/...");
    }
    const std::string directory = value.substr(0, value.find_last_not_of('/') + 1);
    constexpr std::string_view ending = ".log";
    if (directory.size() > ending.size() &&
        directory.compare(directory.size() - ending.size(), ending.size(), ending) == 0) {
        findings.warn("log_path_is_file"_code, where,
                      "log_path is a directory; the log file in it is csi_receiver.log",
                      "write only the directory: log_path=" +
                          printable(parent_directory(directory)));
    }
}

constexpr struct {
    const char* key;
    void (*check)(const std::string& value, const place& where, report& findings);
} value_checks[] = {
    {"zorvin_uuid", check_uuid}, {"server", check_server},     {"http_port", check_http_port},
    {"api", check_api},          {"fusion", check_fusion},     {"csi_file", check_csi_file},
    {"log", check_log},          {"log_path", check_log_path},
};

} // namespace

void check_values(const settings& config, report& findings) {
    check_sample_identity(config, findings);
    for (const auto& [key, check] : value_checks) {
        const auto found = config.find(key);
        if (found != config.end()) {
            check(found->second.value, at_line(found->second.line, key), findings);
        }
    }
}

} // namespace csi_doctor
