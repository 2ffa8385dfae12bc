/// Splits a log file into the daemon's lines, and finds out which of them a peer may have written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/log_lines.h"

namespace csi_doctor {

/// The daemon logs texts of its peers as received, line ends included.
enum class line_trust : std::uint8_t {
    own,      // the daemon wrote it
    doubtful, // nothing in the log says whether it is part of a peer's text
    quoted,   // part of a peer's text, whatever it looks like
};

/// A line, or consecutive lines without a time that are not known.
struct log_entry {
    std::size_t begin; // in the file's text
    std::size_t end;   // past the line end
    std::size_t line;  // number of the first line, from 1
    std::optional<std::int64_t> time;
    known_line known; // fields: within the first line only
    line_trust trust;
    std::size_t message_end; // past the message that the line begins, for `received`
};

/// What a command asks for.
struct command_kind {
    std::string cmd;    // in parentheses for what is not a command
    std::string engine; // empty: none
    [[nodiscard]] bool operator<(const command_kind& other) const {
        return cmd != other.cmd ? cmd < other.cmd : engine < other.engine;
    }
};

/// Of the text of a message.
[[nodiscard]] command_kind kind_of_command(std::string_view text);

struct log_file {
    std::string path;
    std::string text;
    std::vector<log_entry> entries; // refer to the text
    std::size_t lines = 0;

    [[nodiscard]] std::string_view text_of(const log_entry& entry) const {
        return std::string_view(text).substr(entry.begin, entry.end - entry.begin);
    }
    /// For an entry `received`.
    [[nodiscard]] std::string_view message_of(const log_entry& entry) const {
        const char* const begin = entry.known.fields[0].data();
        return {begin, entry.message_end - static_cast<std::size_t>(begin - text.data())};
    }
};

/// Fills in all except the path, from the text, which gets the daemon's line ends. The text must
/// not be moved afterwards.
void read_entries(log_file& file);

} // namespace csi_doctor
