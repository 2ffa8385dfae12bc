/// What the daemon did, according to its log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "doctor/log_reader.h"

namespace csi_doctor {

/// In seconds since 1970.
using log_time = std::int64_t;
/// Nothing: before the log begins, or not before it ends.
using maybe_time = std::optional<log_time>;

/// One run of the daemon.
struct daemon_run {
    maybe_time begin;
    maybe_time end;
    std::string version;
    std::string how;       // it ended; empty: it had not
    bool expected = false; // it was told to end
    bool doubtful = false; // whether begin or end rests on a doubtful line
    std::set<std::string> bots;
};

struct outage {
    log_time begin;
    maybe_time end;
    std::string reason;
    bool over = false; // the daemon attached again; else it ended before
    bool doubtful = false;
};

enum class attachment : std::uint8_t { unknown, stopped, starting, attached, outage, disconnected };

/// From its time until the next one's.
struct state_change {
    maybe_time begin;
    attachment state;
    bool doubtful = false;
};

/// How often, and when first and last.
struct occurrences {
    std::size_t count = 0;
    std::size_t doubtful = 0;
    maybe_time first;
    maybe_time last;
};

struct failure_kind {
    std::string peer;
    std::string what;
    [[nodiscard]] bool operator<(const failure_kind& other) const {
        return peer != other.peer ? peer < other.peer : what < other.what;
    }
};

/// A scan with a report.
struct logged_scan {
    maybe_time begin;
    maybe_time end;                   // nothing: not complete
    std::vector<std::string> hwaddrs; // of the Bots that it looked for
    std::set<std::string> found;      // their ids
    bool doubtful = false;
};

struct line_place {
    std::string path;
    std::size_t line;
    std::string text;
};

struct log_history {
    std::size_t files = 0;
    std::size_t lines = 0;
    std::vector<std::string> missing; // files
    maybe_time begin;
    maybe_time end;
    std::size_t backward_steps = 0; // of the clock
    std::vector<daemon_run> runs;
    std::vector<state_change> states;
    std::vector<outage> outages;
    std::map<command_kind, occurrences> commands;
    std::map<failure_kind, occurrences> failures;
    std::vector<logged_scan> scans;
    std::vector<log_time> command_times;
    std::vector<log_time> failure_times;
    std::size_t unknown_lines = 0;
    std::vector<line_place> first_unknown; // the first few
    std::size_t quoted_lines = 0;          // within texts of peers, but like the daemon's own
    std::size_t doubtful_lines = 0;
    std::optional<line_place> first_quoted;
    std::optional<line_place> first_doubtful;

    /// Of the daemon at the end of the log.
    [[nodiscard]] attachment state() const {
        return states.empty() ? attachment::unknown : states.back().state;
    }
    /// Whether there was an outage or a failure, a run ended by itself, or the daemon runs and is
    /// not attached.
    [[nodiscard]] bool has_faults() const;
};

/// Builds the history from the files, the oldest one first.
class log_historian {
public:
    explicit log_historian(std::vector<std::string> missing = {}) {
        history_.missing = std::move(missing);
    }
    void add(const log_file& file);
    [[nodiscard]] const log_history& history() const { return history_; }

private:
    void add_entry(const log_file& file, const log_entry& entry);
    void note_time(const log_entry& entry);
    void note_run(const log_entry& entry);
    bool note_trust(const log_file& file, const log_entry& entry);
    void note_unknown(const log_file& file, const log_entry& entry);
    void apply_to_run(const log_entry& entry);
    void apply_to_session(const log_file& file, const log_entry& entry);
    void apply_to_peers(const log_entry& entry);
    void apply_to_scan(const log_entry& entry);
    void begin_run(const log_entry& entry);
    void end_run(const log_entry& entry, const std::string& how, bool expected);
    daemon_run& current_run(const log_entry& entry);
    void enter(attachment state, const log_entry& entry);
    void begin_outage(const log_entry& entry);
    void end_outage(const log_entry& entry, bool over);
    void count_command(const log_file& file, const log_entry& entry);
    void count_failure(const std::string& peer, const std::string& what, const log_entry& entry);
    void count(occurrences& counted, const log_entry& entry) const;
    logged_scan& open_scan();

    log_history history_;
    bool begins_next_ = false; // the current run began just before the next time
    bool scanning_ = false;    // the last scan is not complete
};

} // namespace csi_doctor
