#include "doctor/syntax_checks.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>
#include <utility>

#include "daemon/configuration.h"
#include "doctor/encoding_checks.h"
#include "doctor/suggestions.h"
#include "doctor/text.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr std::array<std::string_view, 3> keys_set_by_daemon = {"version", "file", "execname"};
constexpr struct {
    const char* key;
    const char* example;
} required_keys[] = {
    {"zorvin_uuid", "zorvin_uuid=9001"},
    {"server", "server=192.0.2.10"},
    {"routing", "routing=101:127.0.0.1:wlan0:020000000065"},
};

template<class list>
bool contains(const list& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

std::string list_known_keys() {
    std::string text;
    for (const std::string_view key : known_keys) {
        text += (text.empty() ? "" : ", ") + std::string(key);
    }
    return text;
}

void explain_unknown_key(const std::string& key, const place& where, report& findings) {
    if (key.empty()) {
        findings.warn("key_empty"_code, where, "has no effect: there is no key before the \"=\"",
                      "write KEY=VALUE");
    } else if (key.front() == '#') {
        findings.warn("comment_not_in_column_one"_code, where,
                      "has no effect: the # is not in column one, so this is not a comment but the "
                      "unknown key " +
                          in_quotes(key),
                      "move the # to column one");
    } else if (contains(keys_set_by_daemon, key)) {
        findings.warn("key_set_by_daemon"_code, where,
                      "has no effect: the daemon sets this key itself",
                      "delete the line, or use one of the keys " + list_known_keys());
    } else {
        const std::string meant(suggest_key(key));
        findings.warn("key_unknown"_code, where,
                      "has no effect: the daemon does not know the key " + in_quotes(key),
                      meant.empty()
                          ? "use one of the keys " + list_known_keys() + ", or delete the line"
                          : "write " + meant + " if that is what you meant");
    }
}

/// A # in the value, where the daemon cuts it off, and quotes around it, which the daemon keeps.
void check_value_text(const std::string& line, const std::string& value, const place& where,
                      report& findings) {
    const std::size_t hash = line.find('#', line.find('=') + 1);
    if (hash != std::string::npos) {
        const bool after_space = line[hash - 1] == ' ' || line[hash - 1] == '\t';
        if (after_space) {
            findings.ok("value_before_comment"_code, where,
                        "the value is " + in_quotes(value) +
                            "; the # and the text after it are ignored");
        } else {
            findings.warn("value_cut_by_hash"_code, where,
                          "the # ends the value, which is only " + in_quotes(value),
                          "use a value without a #; put a space before a comment");
        }
    }
    if (value.front() == '"' || value.front() == '\'') {
        findings.fail("value_quoted"_code, where,
                      "the quotes are part of the value: " + printable(value), "remove the quotes");
    }
}

/// A line without "=", or with an empty value.
void explain_dropped_line(const std::string& line, std::size_t number, const settings& config,
                          report& findings) {
    const std::string content = csi_receiver::trim(line);
    if (content.empty() || content.front() == '#') {
        return;
    }
    if (line.find('=') == std::string::npos) {
        findings.warn("line_without_equals"_code, at_line(number, ""),
                      "ignored: there is no \"=\" in " + in_quotes(content.substr(0, 40)),
                      "write KEY=VALUE on one line: a value cannot continue on the next line, and "
                      "a comment begins with a # in column one");
        return;
    }
    const std::string key = csi_receiver::parse_line(line, '=').key;
    const bool has_hash = line.find('#') != std::string::npos;
    const auto earlier = config.find(key);
    findings.warn("value_empty"_code, at_line(number, key),
                  std::string("ignored: the value is empty") + (has_hash ? " (a # ends it)" : "") +
                      (earlier == config.end()
                           ? ""
                           : "; line " + std::to_string(earlier->second.line) + " stays in effect"),
                  "write a value, or delete the line");
}

void accept_line(const std::string& line, csi_receiver::configuration_line& parsed,
                 std::size_t number, settings& config, report& findings) {
    const place where = at_line(number, parsed.key);
    if (!contains(known_keys, parsed.key)) {
        explain_unknown_key(parsed.key, where, findings);
        return;
    }
    check_value_text(line, parsed.value, where, findings);
    const auto earlier = config.find(parsed.key);
    if (earlier != config.end()) {
        findings.warn("key_repeated"_code, where,
                      "overrides line " + std::to_string(earlier->second.line) +
                          ", which has the same key",
                      parsed.key == "routing" ? "write all Bots on one line, separated by commas"
                                              : "delete the line that is wrong");
    }
    config[parsed.key] = {std::move(parsed.value), number};
}

void check_required_keys(const settings& config, report& findings) {
    for (const auto& required : required_keys) {
        if (config.count(required.key) == 0) {
            findings.fail("key_missing"_code, place(required.key, 0, required.key),
                          "missing: the daemon does not start without it",
                          std::string("add a line such as ") + required.example);
        }
    }
}

} // namespace

place at_line(std::size_t line, const std::string& key) {
    const std::string shown = printable(key);
    return {"line " + std::to_string(line) + (key.empty() ? "" : " (" + shown + ")"), line, shown};
}

settings check_syntax(const std::string& text, report& findings) {
    if (!check_encoding(text, findings)) {
        return {};
    }
    settings config;
    std::istringstream stream(text);
    std::size_t number = 0;
    bool any_accepted = false;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        csi_receiver::configuration_line parsed = csi_receiver::parse_line(line, '=');
        if (parsed.accepted) {
            any_accepted = true;
            accept_line(line, parsed, number, config, findings);
        } else {
            explain_dropped_line(line, number, config, findings);
        }
    }
    if (any_accepted) {
        check_required_keys(config, findings);
    } else {
        findings.fail("file_no_setting"_code, "file",
                      "has no KEY=VALUE line: the daemon treats it as empty and exits",
                      "start from the sample csi_receiver.conf");
    }
    return config;
}

} // namespace csi_doctor
