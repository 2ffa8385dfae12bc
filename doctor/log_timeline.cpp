#include "doctor/log_timeline.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "doctor/log_report.h"
#include "doctor/text.h"

namespace csi_doctor {
namespace {

// In pixels.
constexpr double left = 110;
constexpr double width = 860;
constexpr double row_height = 46;
constexpr double top = 58;
constexpr double bar_height = 24;
constexpr std::size_t bins = 172;
constexpr double height = top + 4 * row_height + 40;

constexpr const char* style =
    "<style>text{font:13px sans-serif;fill:#222}.small{font-size:11px;fill:#555}"
    ".attached{fill:#3a9d5d}.outage{fill:#d64541}.disconnected{fill:#e6a23c}"
    ".starting{fill:#9bb8d3}.stopped{fill:#bbb}.unknown{fill:#e8e8e8}"
    ".command{fill:#4878a8}.failure{fill:#d64541}.scan{fill:#7a5195}"
    ".doubtful{opacity:.45}.rule{stroke:#ccc}</style>\n";

struct band_kind {
    const char* name; // of the class
    const char* label;
};

band_kind kind_of(attachment state) {
    constexpr band_kind kinds[] = {{"unknown", "unknown"},   {"stopped", "not running"},
                                   {"starting", "starting"}, {"attached", "attached"},
                                   {"outage", "outage"},     {"disconnected", "disconnected"}};
    return kinds[static_cast<std::size_t>(state)];
}

std::string number(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", value);
    return text.data();
}

/// For text and attributes.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : printable(text)) {
        result += c == '<'   ? "&lt;"
                  : c == '>' ? "&gt;"
                  : c == '&' ? "&amp;"
                  : c == '"' ? "&quot;"
                             : std::string(1, c);
    }
    return result;
}

std::string text_at(double x, double y, const std::string& text, const std::string& attributes) {
    return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" " + attributes + ">" +
           escaped(text) + "</text>\n";
}

struct box {
    double x;
    double y;
    double width;
    double height;
};

std::string rectangle(const box& area, const std::string& classes, const std::string& title) {
    return "<rect x=\"" + number(area.x) + "\" y=\"" + number(area.y) + "\" width=\"" +
           number(area.width) + "\" height=\"" + number(area.height) + "\" class=\"" + classes +
           "\"><title>" + escaped(title) + "</title></rect>\n";
}

class timeline {
public:
    explicit timeline(const log_history& history)
        : history_(history)
        , begin_(*history.begin)
        , end_(std::max(*history.end, *history.begin + 1)) {}

    [[nodiscard]] std::string draw() const;

private:
    [[nodiscard]] double x_of(log_time time) const;
    [[nodiscard]] std::string draw_states() const;
    [[nodiscard]] std::string draw_counts(const std::vector<log_time>& times, std::size_t row,
                                          const char* name) const;
    [[nodiscard]] std::string draw_scans(std::size_t row) const;
    [[nodiscard]] std::string draw_axis() const;
    [[nodiscard]] static std::string draw_legend();

    const log_history& history_;
    const log_time begin_;
    const log_time end_;
};

double row_top(std::size_t row) {
    return top + static_cast<double>(row) * row_height;
}

std::string row_label(std::size_t row, const char* name) {
    return text_at(left - 10, row_top(row) + 17, name, "text-anchor=\"end\"");
}

/// Clocks jump: times outside the log's are drawn at its ends.
double timeline::x_of(log_time time) const {
    const log_time within = std::clamp(time, begin_, end_);
    return left + width * static_cast<double>(within - begin_) / static_cast<double>(end_ - begin_);
}

std::string timeline::draw_states() const {
    std::string text = row_label(0, "Attached");
    const std::vector<state_change>& states = history_.states;
    for (std::size_t at = 0; at < states.size(); ++at) {
        const log_time begin = states[at].begin.value_or(begin_);
        const bool is_last = at + 1 == states.size();
        const log_time end = is_last ? *history_.end : states[at + 1].begin.value_or(begin);
        const band_kind kind = kind_of(states[at].state);
        const std::string doubt = states[at].doubtful ? " doubtful" : "";
        const double size = std::max(x_of(end) - x_of(begin), 1.0); // the shortest can be seen, too
        text += rectangle({x_of(begin), row_top(0), size, bar_height}, kind.name + doubt,
                          std::string(kind.label) + " from " + format_time(begin) + ", " +
                              (is_last ? "at least " : "") +
                              format_length(std::max<log_time>(end - begin, 0)));
    }
    return text;
}

std::string timeline::draw_counts(const std::vector<log_time>& times, std::size_t row,
                                  const char* name) const {
    std::array<std::size_t, bins> counts{};
    for (const log_time time : times) {
        const double share = (x_of(time) - left) / width;
        ++counts.at(std::min(static_cast<std::size_t>(share * bins), bins - 1));
    }
    const std::size_t most = *std::max_element(counts.begin(), counts.end());
    std::string text = row_label(row, row == 1 ? "Commands" : "Failures");
    for (std::size_t bin = 0; bin < bins; ++bin) {
        if (counts.at(bin) != 0) {
            const double size =
                bar_height * static_cast<double>(counts.at(bin)) / static_cast<double>(most);
            const double x = left + width * static_cast<double>(bin) / bins;
            text += rectangle({x, row_top(row) + bar_height - size, width / bins - 1, size}, name,
                              std::to_string(counts.at(bin)));
        }
    }
    return text + text_at(left + width, row_top(row) - 3,
                          std::to_string(times.size()) + ", at most " + std::to_string(most) +
                              " per column",
                          "class=\"small\" text-anchor=\"end\"");
}

std::string timeline::draw_scans(std::size_t row) const {
    std::string text = row_label(row, "Scans");
    for (const logged_scan& scan : history_.scans) {
        const log_time begin = scan.begin.value_or(begin_);
        const log_time end = scan.end.value_or(begin);
        const double size = std::max(x_of(end) - x_of(begin), 1.0);
        text += rectangle({x_of(begin), row_top(row), size, bar_height},
                          scan.doubtful ? "scan doubtful" : "scan",
                          format_time(begin) + ", found " + std::to_string(scan.found.size()) +
                              " of " + std::to_string(scan.hwaddrs.size()));
    }
    return text;
}

std::string timeline::draw_axis() const {
    constexpr log_time steps = 4;
    std::string text;
    for (log_time step = 0; step <= steps; ++step) {
        const log_time time = begin_ + (end_ - begin_) * step / steps;
        const std::string x = number(x_of(time));
        const char* const anchor = step == 0 ? "start" : step == steps ? "end" : "middle";
        text += "<line x1=\"";
        text += x;
        text += "\" x2=\"";
        text += x;
        text += "\" y1=\"" + number(top - 6) + "\" y2=\"" + number(row_top(4) - 8) +
                "\" class=\"rule\"/>\n";
        text += text_at(x_of(time), row_top(4) + 8, format_time(time),
                        std::string("class=\"small\" text-anchor=\"") + anchor + "\"");
    }
    return text;
}

std::string timeline::draw_legend() {
    std::string text;
    double x = left;
    for (const attachment state :
         {attachment::attached, attachment::outage, attachment::disconnected, attachment::starting,
          attachment::stopped}) {
        const band_kind kind = kind_of(state);
        text += rectangle({x, height - 22, 12, 12}, kind.name, kind.label) +
                text_at(x + 17, height - 12, kind.label, "class=\"small\"");
        x += 110;
    }
    return text + text_at(x, height - 12, "pale: rests on doubtful lines", "class=\"small\"");
}

std::string timeline::draw() const {
    return text_at(left, 26,
                   "csi_receiver from " + format_time(begin_) + " to " + format_time(end_) + " UTC",
                   "font-weight=\"bold\"") +
           draw_axis() + draw_states() + draw_counts(history_.command_times, 1, "command") +
           draw_counts(history_.failure_times, 2, "failure") + draw_scans(3) + draw_legend();
}

} // namespace

std::string to_svg(const log_history& history) {
    const std::string size = number(left + width + 20) + " " + number(height);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size + "\">\n" + style +
           "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n" +
           (history.begin ? timeline(history).draw()
                          : text_at(left, 26, "No line of the log has a time.", "")) +
           "</svg>\n";
}

} // namespace csi_doctor
