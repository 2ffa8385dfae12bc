#include "doctor/log_lines.h"

#include <charconv>
#include <cstddef>
#include <ctime>

namespace csi_doctor {
namespace {

/// "*" stands for a value.
struct line_pattern {
    line_kind kind;
    std::string_view text;
};

// The first match counts.
constexpr line_pattern timed_lines[] = {
    {line_kind::received, "zorvin_client::parse_msg receives: *"},
    {line_kind::sent, "[ * ] <-- *"},
    {line_kind::scan_adds, "adding *"},
    {line_kind::scan_found, "Station * uuid * is a Bot"},
    {line_kind::scan_complete, "Scan complete"},
    {line_kind::passed_on, "--> to local engine at * --> *"},
    {line_kind::passed_on, "--> to * engine --> *"},
    {line_kind::bot_started, "starting bot * for *"},
    {line_kind::bot_started, "restarting bot * for *"},
    {line_kind::note, "engine list for bot * empty, stopping bot"},
    {line_kind::object_error, "object error: *"},
    {line_kind::connected, "Connected to REST server at *"},
    {line_kind::disconnected, "Disconnected from REST server at *"},
    {line_kind::request_failed, "request to * failed: *"},
    {line_kind::bot_added, "Add bot uuid * at zorvin * on interface * hwaddr *"},
    {line_kind::not_started, "error parsing \"routing=*\" configuration parameter"},
    {line_kind::not_started, "invalid zorvin_uuid"},
    {line_kind::not_started, "Error: wrong wlan mode: * for interface * on zorvin *"},
    {line_kind::not_started, "API version unsupported"},
    {line_kind::not_started, "Error connecting to core service"},
    {line_kind::note, "Saving CSI to * on zorvind *"},
    {line_kind::core_refused, "Save CSI error for zorvin at *"},
    {line_kind::terminated, "received terminate signal "},
    {line_kind::terminated, "received hangup signal "},
    {line_kind::note, "received interrupt signal "},
    {line_kind::note, "received broken pipe signal "},
    {line_kind::note, "received unexpected signal number *"},
    {line_kind::note, "error reading signal descriptor: *"},
    {line_kind::note, "log rotated"},
    {line_kind::note, "Stopping the Zorvin client"},
    {line_kind::fusion_failed, "failed to send to zorvin-fusion *"},
    {line_kind::note, "fusion service request failed!"},
    {line_kind::peer_error, "Error: *"},
    {line_kind::core_failed, "*: failed to send *"},
};
constexpr line_pattern other_lines[] = {
    {line_kind::started, "ZW device module version: *"},
    {line_kind::died, "core service * broke its protocol: it answered * with *"},
    {line_kind::exception, "EXCEPTION: *"},
    {line_kind::fusion_answer, "resp from fusion daemon is *"},
    {line_kind::note, "*: JSON assertion failed: *"},
    {line_kind::not_started, "Error starting monitor"},
    {line_kind::note, "* conf_file"},
    {line_kind::not_started, "config empty or file * could not be opened"},
    {line_kind::not_started, "Set \"*\" in *"},
    {line_kind::not_started, "Error initializing signal handling"},
    {line_kind::note, "Running with a preemptive kernel"},
    {line_kind::note, "Closing monitor client"},
    {line_kind::exited, "Exiting *"},
};

bool starts_with(std::string_view text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

/// Fills in the fields. A value in front of other text is a name, and has no blank.
bool matches(std::string_view text, std::string_view pattern, known_line& line) {
    std::size_t count = 0;
    for (std::size_t star = pattern.find('*'); star != std::string_view::npos;
         star = pattern.find('*')) {
        if (!starts_with(text, pattern.substr(0, star))) {
            return false;
        }
        text.remove_prefix(star);
        pattern.remove_prefix(star + 1);
        const std::string_view next = pattern.substr(0, pattern.find('*'));
        const std::size_t end = next.empty() ? text.size() : text.find(next);
        if (end == std::string_view::npos) {
            return false;
        }
        line.fields.at(count++) = text.substr(0, end);
        text.remove_prefix(end);
    }
    return text == pattern;
}

bool take_number(std::string_view& text, char before, int& number) {
    if (text.empty() || text.front() != before) {
        return false;
    }
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + 1, end, number);
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return result.ec == std::errc() && number >= 0;
}

} // namespace

known_line recognise(std::string_view text, bool has_time) {
    const char first = text.empty() ? '\n' : text.front(); // no pattern begins with a line end
    const auto find = [text, first](const auto& patterns) {
        for (const line_pattern& pattern : patterns) {
            if (pattern.text.front() != first && pattern.text.front() != '*') {
                continue;
            }
            known_line line;
            if (matches(text, pattern.text, line)) {
                const bool is_name = pattern.text.front() != '*' ||
                                     line.fields[0].find(' ') == std::string_view::npos;
                line.kind = is_name ? pattern.kind : line_kind::unknown;
                return line;
            }
        }
        return known_line();
    };
    return has_time ? find(timed_lines) : find(other_lines);
}

std::optional<std::int64_t> take_time(std::string_view& text) {
    std::string_view rest = text;
    std::tm time{};
    if (!take_number(rest, '[', time.tm_year) || !take_number(rest, '-', time.tm_mon) ||
        !take_number(rest, '-', time.tm_mday) || !take_number(rest, '_', time.tm_hour) ||
        !take_number(rest, ':', time.tm_min) || !take_number(rest, ':', time.tm_sec) ||
        !starts_with(rest, "] ")) {
        return std::nullopt;
    }
    if (time.tm_year < 1970 || time.tm_year > 9999 || time.tm_mon < 1 || time.tm_mon > 12 ||
        time.tm_mday < 1 || time.tm_mday > 31 || time.tm_hour > 23 || time.tm_min > 59 ||
        time.tm_sec > 60) {
        return std::nullopt;
    }
    time.tm_year -= 1900;
    --time.tm_mon;
    text = rest.substr(2);
    return timegm(&time);
}

} // namespace csi_doctor
