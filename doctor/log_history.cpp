#include "doctor/log_history.h"

#include <algorithm>

#include "platform/json.h"

namespace csi_doctor {
namespace {

constexpr std::size_t max_shown = 10;
// The server chooses the names of commands and engines.
constexpr std::size_t max_kinds = 200;
constexpr std::size_t max_name = 60;
constexpr const char* others = "(others)";

bool is_doubtful(const log_entry& entry) {
    return entry.trust == line_trust::doubtful;
}

/// When the entry was written. Lines without a time follow the one before at once.
maybe_time time_of(const log_entry& entry, const log_history& history) {
    return entry.time ? entry.time : history.end;
}

std::string shortened(std::string_view text) {
    return text.size() <= max_name ? std::string(text)
                                   : std::string(text.substr(0, max_name)) + "...";
}

line_place place_of(const log_file& file, const log_entry& entry) {
    const std::string_view text = file.text_of(entry);
    return {file.path, entry.line, shortened(text.substr(0, text.find('\n')))};
}

/// "ping" or the "cmd" of a request to a core service or the fusion daemon.
std::string name_of_request(std::string_view request) {
    const json::document message = json::parse(request);
    if (!message.IsObject()) {
        return "a request";
    }
    if (json::find(message, "ping") != nullptr) {
        return "ping";
    }
    return shortened(json::find_string(message, "cmd").value_or("a request"));
}

std::size_t lines_in(std::string_view text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

/// The element with the key, or that for all others once there are many.
template<class map>
occurrences& at_most_many(map& all, const typename map::key_type& key) {
    const auto found = all.find(key);
    if (found != all.end()) {
        return found->second;
    }
    return all.size() < max_kinds ? all[key] : all[{others, ""}];
}

} // namespace

bool log_history::has_faults() const {
    const auto failed = [](const daemon_run& run) { return !run.how.empty() && !run.expected; };
    const bool is_running = !runs.empty() && runs.back().how.empty();
    return !outages.empty() || !failures.empty() || std::any_of(runs.begin(), runs.end(), failed) ||
           (is_running && state() != attachment::attached && state() != attachment::unknown);
}

void log_historian::add(const log_file& file) {
    ++history_.files;
    history_.lines += file.lines;
    for (const log_entry& entry : file.entries) {
        add_entry(file, entry);
    }
}

void log_historian::add_entry(const log_file& file, const log_entry& entry) {
    if (!note_trust(file, entry)) {
        return;
    }
    note_time(entry);
    note_run(entry);
    switch (entry.known.kind) {
    case line_kind::unknown:
        note_unknown(file, entry);
        break;
    case line_kind::note:
    case line_kind::bot_started:
    case line_kind::passed_on:
        break;
    case line_kind::started:
    case line_kind::bot_added:
    case line_kind::not_started:
    case line_kind::terminated:
    case line_kind::died:
    case line_kind::exception:
    case line_kind::exited:
        apply_to_run(entry);
        break;
    case line_kind::connected:
    case line_kind::disconnected:
    case line_kind::request_failed:
    case line_kind::received:
    case line_kind::object_error:
    case line_kind::sent:
        apply_to_session(file, entry);
        break;
    case line_kind::core_failed:
    case line_kind::core_refused:
    case line_kind::fusion_failed:
    case line_kind::peer_error:
    case line_kind::fusion_answer:
        apply_to_peers(entry);
        break;
    case line_kind::scan_adds:
    case line_kind::scan_found:
    case line_kind::scan_complete:
        apply_to_scan(entry);
        break;
    }
}

/// False for lines that are part of a peer's text.
bool log_historian::note_trust(const log_file& file, const log_entry& entry) {
    const bool looks_own = entry.time || entry.known.kind != line_kind::unknown;
    if (entry.trust == line_trust::quoted && looks_own) {
        ++history_.quoted_lines;
        if (!history_.first_quoted) {
            history_.first_quoted = place_of(file, entry);
        }
    } else if (entry.trust == line_trust::doubtful) {
        history_.doubtful_lines +=
            looks_own ? 1 : std::max<std::size_t>(lines_in(file.text_of(entry)), 1);
        if (!history_.first_doubtful) {
            history_.first_doubtful = place_of(file, entry);
        }
    }
    return entry.trust != line_trust::quoted;
}

void log_historian::note_time(const log_entry& entry) {
    if (!entry.time) {
        return;
    }
    if (!is_doubtful(entry)) {
        history_.backward_steps += history_.end && *entry.time < *history_.end ? 1U : 0U;
        history_.begin = history_.begin ? history_.begin : entry.time;
        history_.end = entry.time;
    }
    if (begins_next_) {
        begins_next_ = false;
        daemon_run& run = history_.runs.back();
        run.begin = entry.time;
        if (run.how.empty()) {
            enter(attachment::starting, entry);
        } else {
            run.end = entry.time;
        }
    }
}

/// The line with which the run began may be in a file that is no longer there.
void log_historian::note_run(const log_entry& entry) {
    if (entry.time && entry.known.kind != line_kind::unknown) {
        current_run(entry);
    }
}

void log_historian::note_unknown(const log_file& file, const log_entry& entry) {
    history_.unknown_lines += std::max<std::size_t>(lines_in(file.text_of(entry)), 1);
    if (history_.first_unknown.size() < max_shown) {
        history_.first_unknown.push_back(place_of(file, entry));
    }
}

void log_historian::apply_to_run(const log_entry& entry) {
    const std::string_view first = entry.known.fields[0];
    switch (entry.known.kind) {
    case line_kind::started:
        begin_run(entry);
        break;
    case line_kind::bot_added:
        current_run(entry).bots.emplace(first);
        break;
    case line_kind::terminated:
        end_run(entry, "SIGTERM or SIGHUP", true);
        break;
    case line_kind::died:
        count_failure("core service " + shortened(first), "broke its protocol", entry);
        end_run(entry, "core service " + shortened(first) + " broke its protocol", false);
        break;
    case line_kind::exception:
        end_run(entry, "exception: " + shortened(first), false);
        break;
    case line_kind::exited:
        end_run(entry, "in order, but no line says why", false);
        break;
    default:
        end_run(entry, "could not start", false);
    }
}

void log_historian::begin_run(const log_entry& entry) {
    if (!history_.runs.empty() && history_.runs.back().how.empty()) {
        end_run(entry,
                "no line says why (killed, or the power failed); this is the last line's time",
                false);
    }
    daemon_run run;
    run.version = shortened(entry.known.fields[0]);
    run.doubtful = is_doubtful(entry);
    history_.runs.push_back(run);
    begins_next_ = true;
    scanning_ = false;
}

daemon_run& log_historian::current_run(const log_entry& entry) {
    if (history_.runs.empty()) {
        history_.runs.emplace_back(); // it began before the log
        history_.runs.back().doubtful = is_doubtful(entry);
    }
    return history_.runs.back();
}

void log_historian::end_run(const log_entry& entry, const std::string& how, bool expected) {
    daemon_run& run = current_run(entry);
    if (!run.how.empty()) {
        return;
    }
    run.end = time_of(entry, history_);
    if (begins_next_ && run.end) {
        run.begin = run.end;
        begins_next_ = false;
    }
    run.how = how;
    run.expected = expected;
    run.doubtful = run.doubtful || is_doubtful(entry);
    end_outage(entry, false);
    enter(attachment::stopped, entry);
    scanning_ = false;
}

void log_historian::enter(attachment state, const log_entry& entry) {
    if (history_.state() != state) {
        history_.states.push_back({time_of(entry, history_), state, is_doubtful(entry)});
    }
}

void log_historian::apply_to_session(const log_file& file, const log_entry& entry) {
    switch (entry.known.kind) {
    case line_kind::connected:
        end_outage(entry, true);
        enter(attachment::attached, entry);
        break;
    case line_kind::disconnected:
        enter(attachment::disconnected, entry);
        break;
    case line_kind::request_failed:
        begin_outage(entry);
        break;
    case line_kind::received:
        if (history_.state() == attachment::unknown) {
            history_.states.push_back({std::nullopt, attachment::attached, is_doubtful(entry)});
        }
        count_command(file, entry);
        break;
    case line_kind::object_error:
        count_failure("REST server", "sent a message that is not a JSON object", entry);
        break;
    default:
        break;
    }
}

void log_historian::begin_outage(const log_entry& entry) {
    const std::string reason = shortened(entry.known.fields[1]);
    count_failure("REST server", reason, entry);
    if (history_.state() == attachment::outage || !entry.time) {
        return;
    }
    history_.outages.push_back({*entry.time, std::nullopt, reason, false, is_doubtful(entry)});
    enter(attachment::outage, entry);
}

void log_historian::end_outage(const log_entry& entry, bool over) {
    if (history_.outages.empty() || history_.outages.back().end) {
        return;
    }
    outage& last = history_.outages.back();
    last.end = time_of(entry, history_);
    last.over = over;
    last.doubtful = last.doubtful || is_doubtful(entry);
}

void log_historian::count_command(const log_file& file, const log_entry& entry) {
    command_kind kind = kind_of_command(file.message_of(entry));
    kind.cmd = shortened(kind.cmd);
    kind.engine = shortened(kind.engine);
    count(at_most_many(history_.commands, kind), entry);
    history_.command_times.push_back(time_of(entry, history_).value_or(0));
}

void log_historian::count_failure(const std::string& peer, const std::string& what,
                                  const log_entry& entry) {
    count(at_most_many(history_.failures, failure_kind{peer, what}), entry);
    history_.failure_times.push_back(time_of(entry, history_).value_or(0));
}

void log_historian::count(occurrences& counted, const log_entry& entry) const {
    const maybe_time time = time_of(entry, history_);
    ++counted.count;
    counted.doubtful += is_doubtful(entry) ? 1U : 0U;
    counted.first = counted.first ? counted.first : time;
    counted.last = time;
}

void log_historian::apply_to_peers(const log_entry& entry) {
    const auto& fields = entry.known.fields;
    switch (entry.known.kind) {
    case line_kind::core_failed:
        count_failure("core service " + shortened(fields[0]),
                      "no answer to " + name_of_request(fields[1]), entry);
        break;
    case line_kind::core_refused:
        count_failure("core service " + shortened(fields[0]), "does not save CSI", entry);
        break;
    case line_kind::fusion_failed:
        count_failure("fusion daemon", "no answer to " + name_of_request(fields[0]), entry);
        break;
    case line_kind::peer_error:
        count_failure("a core service or the fusion daemon", "an answer that is not a JSON object",
                      entry);
        break;
    default:
        break;
    }
}

void log_historian::apply_to_scan(const log_entry& entry) {
    const auto& fields = entry.known.fields;
    logged_scan* scan = nullptr;
    switch (entry.known.kind) {
    case line_kind::scan_adds:
        // A scan that looks for a Bot for the second time is another one.
        if (scanning_) {
            const std::vector<std::string>& known = history_.scans.back().hwaddrs;
            scanning_ = std::find(known.begin(), known.end(), fields[0]) == known.end();
        }
        scan = &open_scan();
        scan->begin = scan->begin ? scan->begin : entry.time;
        scan->hwaddrs.push_back(shortened(fields[0]));
        break;
    case line_kind::scan_found:
        scan = &open_scan();
        scan->found.insert(shortened(fields[1]));
        break;
    default:
        scan = &open_scan();
        scan->end = entry.time;
        scanning_ = false;
    }
    scan->doubtful = scan->doubtful || is_doubtful(entry);
}

logged_scan& log_historian::open_scan() {
    if (!scanning_) {
        history_.scans.emplace_back();
        scanning_ = true;
    }
    return history_.scans.back();
}

} // namespace csi_doctor
