#include "doctor/log_report.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "doctor/text.h"

namespace csi_doctor {
namespace {

constexpr std::size_t max_rows = 10;
constexpr std::size_t time_width = 19;
constexpr std::size_t length_width = 22;
constexpr const char* mark = " (?)"; // of what rests on doubtful lines

std::string time_or(const maybe_time& time, const char* otherwise) {
    return time ? format_time(*time) : otherwise;
}

std::string mark_if(bool doubtful) {
    return doubtful ? mark : "";
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string rows_left_out(std::size_t count, const char* where) {
    return "  ... " + std::to_string(count) + " more " + where + ": see --json\n";
}

/// The last rows, under a title.
std::string last_rows(const std::string& title, const std::vector<std::string>& rows) {
    std::string text = "\n" + title + "\n";
    const std::size_t begin = rows.size() - std::min(rows.size(), max_rows);
    text += begin == 0 ? "" : rows_left_out(begin, "before");
    for (std::size_t at = begin; at < rows.size(); ++at) {
        text += "  " + rows[at] + "\n";
    }
    return text;
}

/// The first rows, under a title.
std::string first_rows(const std::string& title, const std::vector<std::string>& rows) {
    std::string text = "\n" + title + "\n";
    for (std::size_t at = 0; at < std::min(rows.size(), max_rows); ++at) {
        text += "  " + rows[at] + "\n";
    }
    return rows.size() <= max_rows ? text : text + rows_left_out(rows.size() - max_rows, "kinds");
}

/// The time of its begin follows.
const char* name_of(attachment state) {
    switch (state) {
    case attachment::attached:
        return "attached since ";
    case attachment::outage:
        return "not attached: outage since ";
    case attachment::disconnected:
        return "not attached: the server disconnected it at ";
    case attachment::starting:
        return "not attached since its start at ";
    case attachment::stopped: // the run before
        return "not attached since the last run's end at ";
    case attachment::unknown:
        break;
    }
    return "unknown whether attached";
}

/// Only a run whose first line is in the log has a version.
std::string begin_of(const daemon_run& run) {
    return time_or(run.begin, run.version.empty() ? "before the log" : "an unknown time");
}

std::string describe_state(const log_history& history) {
    if (history.runs.empty()) {
        return "No run of the daemon";
    }
    const daemon_run& run = history.runs.back();
    if (!run.how.empty()) {
        return "Ended " + time_or(run.end, "at an unknown time") + ": " + printable(run.how) +
               mark_if(run.doubtful);
    }
    const std::string version = run.version.empty() ? "" : "Version " + printable(run.version);
    std::string text = (version.empty() ? "Running" : version + ", running") + " since " +
                       begin_of(run) + mark_if(run.doubtful) + ", " + name_of(history.state());
    if (!history.states.empty()) {
        text += time_or(history.states.back().begin, "before the log") +
                mark_if(history.states.back().doubtful);
    }
    return text;
}

std::string describe_runs(const log_history& history) {
    std::vector<std::string> rows;
    for (const daemon_run& run : history.runs) {
        rows.push_back(padded(begin_of(run), time_width) + "  " +
                       (run.how.empty() ? "still running"
                                        : "ended " + time_or(run.end, "at an unknown time") + ": " +
                                              printable(run.how)) +
                       mark_if(run.doubtful));
    }
    return last_rows(counted(rows.size(), "run") + " of the daemon", rows);
}

std::string at_least_if(bool lasts) {
    return lasts ? "at least " : "";
}

std::string describe_outages(const log_history& history) {
    std::vector<std::string> rows;
    log_time sum = 0;
    bool lasts = false; // the last one, and nobody knows how long
    for (const outage& one : history.outages) {
        const log_time end = one.end.value_or(history.end.value_or(one.begin));
        const log_time length = std::max<log_time>(end - one.begin, 0);
        sum += length;
        lasts = !one.end;
        rows.push_back(format_time(one.begin) + "  " +
                       padded(at_least_if(lasts) + format_length(length), length_width) +
                       printable(one.reason) +
                       (one.over  ? ""
                        : one.end ? ", until the daemon ended"
                                  : ", not over") +
                       mark_if(one.doubtful));
    }
    return last_rows(
        counted(rows.size(), "outage") +
            (rows.empty() ? "" : ", " + at_least_if(lasts) + format_length(sum) + " in all"),
        rows);
}

template<class map, class describe_type>
std::string describe_counts(const char* title, const map& all, describe_type describe) {
    using row = std::pair<std::size_t, std::string>;
    std::vector<row> rows;
    std::size_t sum = 0;
    for (const auto& [kind, counted_ones] : all) {
        sum += counted_ones.count;
        const std::string doubt =
            counted_ones.doubtful == 0 ? "" : mark + (" " + std::to_string(counted_ones.doubtful));
        rows.emplace_back(counted_ones.count, padded(std::to_string(counted_ones.count), 8) +
                                                  describe(kind, counted_ones) + doubt);
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const row& one, const row& other) { return one.first > other.first; });
    std::vector<std::string> texts(rows.size());
    std::transform(rows.begin(), rows.end(), texts.begin(),
                   [](const row& one) { return one.second; });
    return first_rows(counted(sum, title), texts);
}

std::string describe_commands(const log_history& history) {
    return describe_counts(
        "command", history.commands, [](const command_kind& kind, const occurrences&) {
            return printable(kind.cmd) + (kind.engine.empty() ? "" : ", engine ") +
                   printable(kind.engine);
        });
}

std::string describe_failures(const log_history& history) {
    return describe_counts("failure", history.failures,
                           [](const failure_kind& kind, const occurrences& all) {
                               return printable(kind.peer) + ": " + printable(kind.what) + ", " +
                                      (all.count == 1 ? "" : "last ") + time_or(all.last, "?");
                           });
}

std::string describe_scans(const log_history& history) {
    std::vector<std::string> rows;
    for (const logged_scan& scan : history.scans) {
        std::string found;
        for (const std::string& id : scan.found) {
            found += (found.empty() ? "" : ", ") + printable(id);
        }
        rows.push_back(time_or(scan.begin, "before the log     ") + "  found " +
                       std::to_string(scan.found.size()) +
                       (scan.begin ? " of " + std::to_string(scan.hwaddrs.size()) : "") +
                       (found.empty() ? "" : ": ") + found + (scan.end ? "" : ", not complete") +
                       mark_if(scan.doubtful));
    }
    return last_rows(counted(rows.size(), "scan") + " with a report", rows);
}

std::string place_text(const line_place& place) {
    return printable(place.path) + ":" + std::to_string(place.line) + ": " + in_quotes(place.text);
}

std::string describe_lines(const log_history& history) {
    std::string text;
    if (history.unknown_lines != 0) {
        std::vector<std::string> rows;
        for (const line_place& place : history.first_unknown) {
            rows.push_back(place_text(place));
        }
        text +=
            last_rows(counted(history.unknown_lines, "unknown line") + ", the first of them", rows);
    }
    if (history.first_quoted) {
        text +=
            "\n" + counted(history.quoted_lines, "line") +
            " within texts of peers look like the daemon's own, and do not count: the first at " +
            place_text(*history.first_quoted) + "\n";
    }
    if (history.first_doubtful) {
        text += "\n" + counted(history.doubtful_lines, "line") +
                " may be the daemon's own or forged by a peer; what rests on them is marked" +
                mark + ": the first at " + place_text(*history.first_doubtful) + "\n";
    }
    return text;
}

} // namespace

std::string format_time(log_time time) {
    const auto seconds = static_cast<std::time_t>(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &utc)};
}

std::string format_length(log_time seconds) {
    const auto joined = [](log_time large, const char* unit, log_time small, const char* part) {
        return std::to_string(large) + unit +
               (small == 0 ? "" : " " + std::to_string(small) + part);
    };
    constexpr log_time minute = 60;
    constexpr log_time hour = 60 * minute;
    constexpr log_time day = 24 * hour;
    return seconds < minute ? std::to_string(seconds) + " s"
           : seconds < hour ? joined(seconds / minute, " min", seconds % minute, " s")
           : seconds < day  ? joined(seconds / hour, " h", seconds % hour / minute, " min")
                            : joined(seconds / day, " d", seconds % day / hour, " h");
}

std::string to_text(const log_history& history) {
    std::string text = describe_state(history) + "\nLog: " + time_or(history.begin, "no time") +
                       " to " + time_or(history.end, "no time") + " UTC, " +
                       counted(history.files, "file") + ", " + counted(history.lines, "line") +
                       "\n";
    for (const std::string& path : history.missing) {
        text += "Not given: " + printable(path) + ", so there is a gap\n";
    }
    if (history.backward_steps != 0) {
        text += "The clock went back " + counted(history.backward_steps, "time") +
                ": lengths may be wrong\n";
    }
    return text + describe_runs(history) + describe_outages(history) + describe_commands(history) +
           describe_failures(history) + describe_scans(history) + describe_lines(history);
}

} // namespace csi_doctor
