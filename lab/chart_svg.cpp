// The sequence chart as a picture.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <map>
#include <string_view>

#include "lab/annotation.h"
#include "lab/chart.h"
#include "lab/encoding.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

constexpr unsigned row_height = 22;
constexpr unsigned head_height = 40;
constexpr unsigned left_margin = 80; // the time is there
constexpr unsigned lane_width = 230;

/// A line of the picture: a message, or polls without a command.
struct row {
    double time;
    std::string from;
    std::string to;
    std::string label;
    std::string_view style; // a class of the style sheet
    std::size_t polls = 0;
    bool is_open_poll = false; // without an answer so far
};

/// Valid XML without markup, at most this long.
std::string escaped(std::string_view text) {
    constexpr std::size_t max_shown = 100;
    std::string result;
    for (const char c : beginning_of(text, max_shown)) {
        switch (c) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        default:
            result += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
        }
    }
    for (const std::string_view outlaw : {"\xef\xbf\xbe", "\xef\xbf\xbf"}) { // not allowed in XML
        for (std::size_t at = 0; (at = result.find(outlaw)) != std::string::npos;) {
            result.replace(at, outlaw.size(), "?");
        }
    }
    return result;
}

std::string_view style_of(const entry& what, const annotation& with) {
    constexpr int first_error_status = 400;
    if (!with.breaches.empty()) {
        return "bad";
    }
    if (!what.event.empty()) {
        return "lost";
    }
    if (what.status >= first_error_status || says_failure(json::parse(what.text))) {
        return "refused";
    }
    return with.repeated ? "repeated" : "";
}

bool is_idle_answer(const entry& what) {
    constexpr int first_error_status = 400;
    return what.from == "server" && what.method == "GET" && what.text.empty() &&
           what.event.empty() && what.status < first_error_status;
}

/// Folds the latest poll without an answer into the rows. False if there is none.
bool fold_poll(std::vector<row>& rows) {
    const auto poll =
        std::find_if(rows.rbegin(), rows.rend(), [](const row& one) { return one.is_open_poll; });
    if (poll == rows.rend()) {
        return false;
    }
    const double time = poll->time;
    rows.erase(std::next(poll).base());
    if (rows.empty() || rows.back().polls == 0) {
        rows.push_back({time, "daemon", "server", "", "polls"});
    }
    ++rows.back().polls;
    rows.back().label =
        std::to_string(rows.back().polls) + (rows.back().polls == 1 ? " poll" : " polls");
    return true;
}

std::vector<row> rows_of(const std::vector<entry>& recording) {
    annotator by;
    std::vector<row> result;
    for (const entry& what : recording) {
        const annotation with = by.next(what);
        if (is_idle_answer(what) && fold_poll(result)) {
            continue;
        }
        const std::string peer = peer_of(what);
        const bool is_from_daemon = what.from == "daemon";
        row next{what.time, is_from_daemon ? "daemon" : peer, is_from_daemon ? peer : "daemon",
                 with.label, style_of(what, with)};
        const std::string mark = with.repeated ? "\u21bb " : !what.event.empty() ? "\u2715 " : "";
        next.label = mark + next.label;
        next.is_open_poll = is_from_daemon && what.method == "GET" && what.text.empty();
        if (what.from == "server" && what.method == "GET" && !result.empty()) {
            result.back().is_open_poll = false; // it brought a command
        }
        result.push_back(next);
    }
    return result;
}

/// The lifelines and where they are, from left to right.
std::map<std::string, unsigned> lanes_of(const std::vector<row>& rows) {
    std::vector<std::string> names{"server", "daemon"};
    bool has_fusion = false;
    for (const row& one : rows) {
        for (const std::string& name : {one.from, one.to}) {
            has_fusion = has_fusion || name == "fusion";
            if (name != "fusion" && std::find(names.begin(), names.end(), name) == names.end()) {
                names.push_back(name);
            }
        }
    }
    const auto shorter_first = [](const std::string& one, const std::string& other) {
        return one.size() == other.size() ? one < other : one.size() < other.size();
    };
    std::sort(names.begin() + 2, names.end(), shorter_first);
    if (has_fusion) {
        names.emplace_back("fusion");
    }
    std::map<std::string, unsigned> result;
    for (const std::string& name : names) {
        const auto index = static_cast<unsigned>(result.size());
        result[name] = left_margin + lane_width / 2 + index * lane_width;
    }
    return result;
}

std::string number(unsigned value) {
    return std::to_string(value);
}

std::string head(unsigned width, unsigned height) {
    return R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" + number(width) + R"(" height=")" +
           number(height) + R"(" font-family="monospace" font-size="12">
<style>
rect { fill: #fff } line { stroke: #9aa5b0 } text { fill: #1c2733 }
.message line { stroke: #15668f; stroke-width: 1.5 } .message path { fill: #15668f }
.time, .polls text { fill: #65727f } .polls line { stroke-dasharray: 2 3 } .repeated line { stroke-dasharray: 6 3 }
.lost line { stroke: #c81e1e; stroke-dasharray: 2 3 } .lost path { fill: #c81e1e } .lost text, .bad text { fill: #c81e1e }
.bad line { stroke: #c81e1e } .bad path { fill: #c81e1e }
.refused line { stroke: #a85b00 } .refused path { fill: #a85b00 } .refused text { fill: #a85b00 }
</style>
<rect width="100%" height="100%"/>
)";
}

std::string draw_lane(const std::string& name, unsigned x, unsigned height) {
    return "<text x=\"" + number(x) + "\" y=\"24\" text-anchor=\"middle\" font-weight=\"bold\">" +
           escaped(name) + "</text>\n<line x1=\"" + number(x) + "\" y1=\"" + number(head_height) +
           "\" x2=\"" + number(x) + "\" y2=\"" + number(height) + "\"/>\n";
}

std::string draw_row(const row& what, unsigned from, unsigned to, unsigned y) {
    const unsigned back = to > from ? to - 8 : to + 8;
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.3f", what.time);
    const std::string line = number(y + 17);
    return "<g class=\"message " + std::string(what.style) +
           "\"><text class=\"time\" x=\"6\" y=\"" + number(y + 13) + "\">" + time.data() +
           "</text><line x1=\"" + number(from) + "\" y1=\"" + line + "\" x2=\"" + number(to) +
           "\" y2=\"" + line + "\"/><path d=\"M" + number(to) + " " + line + " L" + number(back) +
           " " + number(y + 13) + " L" + number(back) + " " + number(y + 21) + " Z\"/><text x=\"" +
           number(std::min(from, to) + 10) + "\" y=\"" + number(y + 13) + "\">" +
           escaped(what.label) + "</text></g>\n";
}

} // namespace

std::string chart_picture(const std::vector<entry>& recording) {
    const std::vector<row> rows = rows_of(recording);
    const auto lanes = lanes_of(rows);
    const unsigned height =
        head_height + static_cast<unsigned>(rows.size()) * row_height + row_height;
    const auto lane_count = static_cast<unsigned>(lanes.size());
    std::string result = head(left_margin + lane_count * lane_width, height);
    for (const auto& [name, x] : lanes) {
        result += draw_lane(name, x, height);
    }
    unsigned y = head_height;
    for (const row& one : rows) {
        result += draw_row(one, lanes.at(one.from), lanes.at(one.to), y);
        y += row_height;
    }
    return result + "</svg>\n";
}

} // namespace csi_lab
