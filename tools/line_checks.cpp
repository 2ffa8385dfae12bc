#include "tools/line_checks.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <sstream>
#include <string_view>
#include <vector>

#include "daemon/configuration.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
constexpr std::array<const char*, 9> known_keys = {"zorvin_uuid", "server", "routing",
                                                   "http_port",   "api",    "fusion",
                                                   "csi_file",    "log",    "log_path"};
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

/// How many characters must be added, removed or changed to make the one from the other.
std::size_t edit_distance(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t changed = diagonal + (from[i] == to[j] ? 0U : 1U);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::string likely_meant(const std::string& key) {
    const auto distance = [&key](const char* known) { return edit_distance(key, known); };
    std::string nearest =
        *std::min_element(known_keys.begin(), known_keys.end(),
                          [&](const char* a, const char* b) { return distance(a) < distance(b); });
    if (edit_distance(key, nearest) * 2 <= nearest.size()) {
        return nearest;
    }
    for (std::string known : known_keys) { // "uuid", "port": a part of the name
        if (key.size() > 2 && known.find(key) != std::string::npos) {
            return known;
        }
    }
    return {};
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
        to.warn(where, "the daemon sets this key itself, whatever stands here", "delete the line");
    } else {
        const std::string meant = likely_meant(key);
        to.warn(where, "the daemon does not know the key " + quoted(key) + " and ignores the line",
                meant.empty() ? "delete the line; the keys are " + all_known_keys()
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
    if (text.compare(0, byte_order_mark.size(), byte_order_mark) == 0) {
        to.warn("line 1", "the file begins with a byte order mark, which spoils the first line",
                "save the file as UTF-8 without a byte order mark, or as ASCII");
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
