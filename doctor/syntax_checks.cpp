#include "doctor/syntax_checks.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "daemon/configuration.h"
#include "doctor/encoding_checks.h"
#include "doctor/suggestions.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr std::array<const char*, 3> own_keys = {"version", "file", "execname"};
const struct {
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

std::string all_known_keys() {
    std::string text;
    for (const char* key : known_keys) {
        text += (text.empty() ? "" : ", ") + std::string(key);
    }
    return text;
}

void explain_unknown_key(const std::string& key, const std::string& where, report& to) {
    if (key.empty()) {
        to.warn(where, "nothing stands before the \"=\", so the line has no effect",
                "write KEY=VALUE");
    } else if (key.front() == '#') {
        to.warn(where,
                "not a comment, as the # is not in column one, but the unknown key " + quoted(key) +
                    "; it has no effect",
                "move the # into column one");
    } else if (contains(own_keys, key)) {
        to.warn(where, "the daemon sets this key itself, whatever stands here",
                "delete the line, or write one of the keys " + all_known_keys());
    } else {
        const std::string meant = likely_meant(key);
        to.warn(where, "the daemon does not know the key " + quoted(key) + " and ignores the line",
                meant.empty() ? "write one of the keys " + all_known_keys() + ", or delete the line"
                              : "write " + meant + " if you meant that");
    }
}

/// A # in the value, and quotes around it: the daemon cuts at the one and keeps the others.
void check_value_text(const std::string& text, const std::string& value, const std::string& where,
                      report& to) {
    const std::size_t sign = text.find('#', text.find('=') + 1);
    if (sign != std::string::npos) {
        const bool apart = text[sign - 1] == ' ' || text[sign - 1] == '\t';
        if (apart) {
            to.ok(where, "the # and what follows is left out; the value is " + quoted(value));
        } else {
            to.warn(where, "a # ends the value, which is only " + quoted(value),
                    "choose a value without a #; before a comment, put a blank");
        }
    }
    if (value.front() == '"' || value.front() == '\'') {
        to.fail(where, "the quotes are taken as a part of the value " + printable(value),
                "write the value without quotes");
    }
}

void explain_dropped_line(const std::string& text, std::size_t number, const settings& taken,
                          report& to) {
    const std::string content = csi_receiver::trim(text);
    if (content.empty() || content.front() == '#') {
        return;
    }
    const std::string key = csi_receiver::parse_line(text, '=').key;
    if (text.find('=') == std::string::npos) {
        to.warn("line " + std::to_string(number),
                "left out, because there is no \"=\" in " + quoted(content.substr(0, 40)),
                "write KEY=VALUE, all on one line: a value does not go on in the next line; "
                "a comment begins with a # in column one");
        return;
    }
    const auto earlier = taken.find(key);
    to.warn(place(number, key),
            std::string("left out, because the value is empty") +
                (text.find('#') != std::string::npos ? " (a # ends it)" : "") +
                (earlier == taken.end()
                     ? ""
                     : "; line " + std::to_string(earlier->second.line) + " stays valid"),
            "write a value, or delete the line");
}

void take_line(const std::string& text, csi_receiver::configuration_line& line, std::size_t number,
               settings& taken, report& to) {
    const std::string where = place(number, line.key);
    if (!contains(known_keys, line.key)) {
        explain_unknown_key(line.key, where, to);
        return;
    }
    check_value_text(text, line.value, where, to);
    const auto earlier = taken.find(line.key);
    if (earlier != taken.end()) {
        to.warn(where,
                "replaces line " + std::to_string(earlier->second.line) +
                    ", which has the same key: only the last one counts",
                line.key == "routing" ? "write all Bots on one line, separated by commas"
                                      : "delete the one that is wrong");
    }
    taken[line.key] = {std::move(line.value), number};
}

void check_required_keys(const settings& taken, report& to) {
    for (const auto& required : required_keys) {
        if (taken.count(required.key) == 0) {
            to.fail(required.key, "missing: the daemon does not start without it",
                    std::string("add a line such as ") + required.example);
        }
    }
}

} // namespace

std::string place(std::size_t line, const std::string& key) {
    return "line " + std::to_string(line) + (key.empty() ? "" : " (" + printable(key) + ")");
}

settings check_lines(const std::string& text, report& to) {
    if (!check_plain_text(text, to)) {
        return {};
    }
    settings taken;
    std::istringstream stream(text);
    bool any = false;
    std::size_t number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        csi_receiver::configuration_line parsed = csi_receiver::parse_line(line, '=');
        any = any || parsed.accepted;
        if (parsed.accepted) {
            take_line(line, parsed, number, taken, to);
        } else {
            explain_dropped_line(line, number, taken, to);
        }
    }
    if (any) {
        check_required_keys(taken, to);
    } else {
        to.fail("file", "there is no line KEY=VALUE in it: the daemon takes it for empty and ends",
                "begin with the sample csi_receiver.conf");
    }
    return taken;
}

} // namespace csi_doctor
