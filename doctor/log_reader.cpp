#include "doctor/log_reader.h"

#include <algorithm>
#include <utility>

#include "platform/json.h"

namespace csi_doctor {
namespace {

// The daemon takes no longer texts from its peers.
constexpr std::size_t max_message = 16'384; // of the server
constexpr std::size_t max_answer = 4096;    // of the core services and the fusion daemon
// What other threads may write between the two lines about one message.
constexpr std::size_t max_between = 8192;
// More repetitions that do not quite fit are made up to keep the reader busy.
constexpr std::size_t max_inexact = 8;

/// The daemon ends no line with CRLF, but a transfer may have made all line ends so.
void undo_crlf(std::string& text) {
    for (std::size_t end = text.find('\n'); end != std::string::npos;
         end = text.find('\n', end + 1)) {
        if (end == 0 || text[end - 1] != '\r') {
            return;
        }
    }
    std::size_t size = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\r' || at + 1 == text.size() || text[at + 1] != '\n') {
            text[size++] = text[at];
        }
    }
    text.resize(size);
}

void split(log_file& file) {
    const std::string_view text = file.text;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t line_end = std::min(text.find('\n', begin), text.size());
        const std::size_t end = std::min(line_end + 1, text.size());
        std::string_view rest = text.substr(begin, line_end - begin);
        const std::optional<std::int64_t> time = take_time(rest);
        const known_line known = recognise(rest, time.has_value());
        ++file.lines;
        const auto is_loose = [](const log_entry& one) {
            return !one.time && one.known.kind == line_kind::unknown;
        };
        const log_entry entry{begin, end, file.lines, time, known, line_trust::own, end};
        if (is_loose(entry) && !file.entries.empty() && is_loose(file.entries.back())) {
            file.entries.back().end = end;
        } else {
            file.entries.push_back(entry);
        }
        begin = end;
    }
}

/// Parses at most one message at a time; the daemon does the same.
json::document parse_object(std::string_view text) {
    json::document message = json::parse(text);
    return message.IsObject() ? std::move(message) : json::document();
}

/// Finds the texts of peers in one file.
class peer_texts {
public:
    explicit peer_texts(log_file& file)
        : file_(file)
        , all_(file.text) {}

    void find();

private:
    using index = std::size_t;

    void quote(std::size_t begin, std::size_t end);
    void doubt(std::size_t begin, std::size_t end) { doubts_.emplace_back(begin, end); }
    void mark_doubts();
    void read_entry(index at);
    void read_message(index at);
    [[nodiscard]] std::vector<index> candidates(index at) const;
    [[nodiscard]] std::optional<index> find_object_error(index at) const;
    [[nodiscard]] std::size_t common_size(const log_entry& received, const log_entry& error) const;
    [[nodiscard]] bool repeats(const log_entry& received, const log_entry& error) const;
    [[nodiscard]] bool belongs_to_later(index at, index error) const;
    void doubt_unassigned();
    void read_rejected(index at, index error);
    void read_object(index at);
    void read_repetition(const log_entry& entry);
    void read_engine(const log_entry& entry);
    void doubt_after(const log_entry& entry, std::string_view field, std::size_t size);
    [[nodiscard]] std::size_t offset_of(std::string_view field) const {
        return static_cast<std::size_t>(field.data() - all_.data());
    }

    log_file& file_;
    std::string_view all_;
    std::string_view rest_; // of the last message, after its first line
    std::string engine_;    // of the last message
    std::vector<index> object_errors_;
    std::vector<bool> assigned_;                              // by index: it repeats a message
    std::vector<std::pair<std::size_t, std::size_t>> doubts_; // offsets; they overlap
};

void peer_texts::find() {
    const std::vector<log_entry>& entries = file_.entries;
    assigned_.resize(entries.size());
    for (index at = 0; at < entries.size(); ++at) {
        if (entries[at].known.kind == line_kind::object_error) {
            object_errors_.push_back(at);
        }
    }
    for (index at = 0; at < entries.size(); ++at) {
        if (entries[at].trust != line_trust::quoted) {
            read_entry(at);
        }
    }
    doubt_unassigned();
    mark_doubts();
}

void peer_texts::read_entry(index at) {
    const log_entry& entry = file_.entries[at];
    switch (entry.known.kind) {
    case line_kind::received:
        read_message(at);
        break;
    case line_kind::passed_on:
        read_repetition(entry);
        break;
    case line_kind::bot_started:
        read_engine(entry);
        break;
    case line_kind::peer_error:
    case line_kind::fusion_answer:
        doubt_after(entry, entry.known.fields[0], max_answer);
        break;
    default:
        break;
    }
}

/// A repetition without its message: a message in front of it, or this one, was misunderstood.
void peer_texts::doubt_unassigned() {
    for (const index at : object_errors_) {
        const log_entry entry = file_.entries[at];
        if (entry.trust != line_trust::quoted && !assigned_[at]) {
            doubt(entry.begin - std::min(entry.begin, max_message + max_between),
                  entry.end + max_message);
        }
    }
}

/// Marks the entries that begin there.
void peer_texts::quote(std::size_t begin, std::size_t end) {
    std::vector<log_entry>& entries = file_.entries;
    auto entry = std::lower_bound(
        entries.begin(), entries.end(), begin,
        [](const log_entry& one, std::size_t offset) { return one.begin < offset; });
    for (; entry != entries.end() && entry->begin < end; ++entry) {
        entry->trust = line_trust::quoted;
    }
}

/// Marks the entries that begin in doubtful parts, except those that are quoted. In one pass over
/// the file: thousands of such parts can overlap.
void peer_texts::mark_doubts() {
    std::sort(doubts_.begin(), doubts_.end());
    auto next = doubts_.begin();
    std::size_t end = 0; // of all parts that have begun
    for (log_entry& entry : file_.entries) {
        for (; next != doubts_.end() && next->first <= entry.begin; ++next) {
            end = std::max(end, next->second);
        }
        if (entry.begin < end) {
            entry.trust = std::max(entry.trust, line_trust::doubtful);
        }
    }
}

void peer_texts::read_message(index at) {
    rest_ = {};
    engine_.clear();
    if (const std::optional<index> error = find_object_error(at)) {
        read_rejected(at, *error);
    } else {
        read_object(at);
    }
}

/// How many bytes after both lines are the same: whole lines only.
std::size_t peer_texts::common_size(const log_entry& received, const log_entry& error) const {
    const std::string_view between = all_.substr(received.end, error.begin - received.end);
    const std::string_view after = all_.substr(error.end, between.size());
    const auto differ = std::mismatch(after.begin(), after.end(), between.begin());
    const auto same = static_cast<std::size_t>(differ.first - after.begin());
    if (same == between.size()) {
        return same;
    }
    const std::size_t line_end = between.substr(0, same).rfind('\n');
    return line_end == std::string_view::npos ? 0 : line_end + 1;
}

bool peer_texts::repeats(const log_entry& received, const log_entry& error) const {
    const std::size_t size = error.begin - received.end;
    return all_.compare(error.end, size, all_, received.end, size) == 0;
}

/// Whether the line repeats another message with the same first line.
bool peer_texts::belongs_to_later(index at, index error) const {
    const std::vector<log_entry>& entries = file_.entries;
    for (index later = error - 1; later > at; --later) {
        if (entries[later].known.kind == line_kind::received &&
            entries[later].known.fields[0] == entries[at].known.fields[0] &&
            repeats(entries[later], entries[error])) {
            return true;
        }
    }
    return false;
}

/// The lines that begin like the message, close enough to be its repetition.
std::vector<std::size_t> peer_texts::candidates(index at) const {
    const log_entry& received = file_.entries[at];
    std::vector<index> found;
    for (auto next = std::upper_bound(object_errors_.begin(), object_errors_.end(), at);
         next != object_errors_.end(); ++next) {
        const log_entry& error = file_.entries[*next];
        if (error.begin - received.begin > max_message + max_between) {
            break;
        }
        if (error.trust != line_trust::quoted && !assigned_[*next] &&
            error.known.fields[0] == received.known.fields[0]) {
            found.push_back(*next);
        }
    }
    return found;
}

/// A message that is not an object is logged twice. The line with which it begins for the second
/// time: if the message contains such lines, the farthest one after which everything since the
/// first time is repeated; else, when another thread has written in between, the first one.
std::optional<std::size_t> peer_texts::find_object_error(index at) const {
    const log_entry& received = file_.entries[at];
    const std::vector<index> errors = candidates(at);
    const auto exact = std::find_if(errors.rbegin(), errors.rend(), [&](index error) {
        return repeats(received, file_.entries[error]);
    });
    if (exact != errors.rend()) {
        return *exact;
    }
    for (std::size_t tried = 0; tried < errors.size(); ++tried) {
        if (tried == max_inexact || !belongs_to_later(at, errors[tried])) {
            return errors[tried];
        }
    }
    return std::nullopt;
}

void peer_texts::read_rejected(index at, index error) {
    const log_entry received = file_.entries[at];
    const log_entry again = file_.entries[error];
    const std::size_t size = common_size(received, again);
    assigned_[error] = true;
    file_.entries[at].message_end = received.end + size;
    quote(received.end, received.end + size);
    quote(again.end, again.end + size);
    doubt(received.end + size, again.begin);
}

/// No line within an object can begin with a time, since that is not JSON.
void peer_texts::read_object(index at) {
    const log_entry& entry = file_.entries[at];
    const bool has_more = at + 1 < file_.entries.size() && !file_.entries[at + 1].time &&
                          file_.entries[at + 1].known.kind == line_kind::unknown;
    const std::size_t end = has_more ? file_.entries[at + 1].end : entry.end;
    const std::size_t begin = offset_of(entry.known.fields[0]);
    const json::document message = parse_object(all_.substr(begin, end - begin));
    if (message.IsNull()) {
        doubt_after(entry, entry.known.fields[0], max_message);
        return;
    }
    rest_ = all_.substr(entry.end, end - entry.end);
    engine_ = json::find_string(message, "engineType").value_or("");
    file_.entries[at].message_end = end;
    quote(entry.end, end);
}

/// For a line that ends with the last message.
void peer_texts::read_repetition(const log_entry& entry) {
    if (all_.substr(entry.end, rest_.size()) == rest_) {
        quote(entry.end, entry.end + rest_.size());
    }
}

/// An engine's name can contain line ends: in JSON they are written "\n".
void peer_texts::read_engine(const log_entry& entry) {
    const std::string_view field = entry.known.fields[1];
    const std::string expected = engine_ + " engine";
    const std::size_t begin = offset_of(field);
    if (all_.substr(begin, expected.size()) == expected) {
        quote(entry.end, begin + expected.size());
    } else {
        doubt_after(entry, field, max_message);
    }
}

void peer_texts::doubt_after(const log_entry& entry, std::string_view field, std::size_t size) {
    doubt(entry.end, offset_of(field) + size);
}

} // namespace

command_kind kind_of_command(std::string_view text) {
    const json::document message = parse_object(text);
    if (message.IsNull()) {
        return {"(not an object)", ""};
    }
    const std::string_view word = json::find_string(message, "cmd").value_or("");
    return {word.empty() ? "(no cmd)" : std::string(word),
            std::string(json::find_string(message, "engineType").value_or(""))};
}

void read_entries(log_file& file) {
    undo_crlf(file.text);
    split(file);
    peer_texts(file).find();
}

} // namespace csi_doctor
