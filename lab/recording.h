/// Recordings of traffic: JSON Lines, as described in protocol/README.md.
#pragma once

#include <chrono>
#include <cstddef>
#include <fstream>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "peers/journal.h"

namespace csi_lab {

/// One message of a recording.
struct entry {
    double time = 0;      // seconds since the recording began
    std::string from;     // "daemon", "server", "core" or "fusion"
    std::string to;       // the same
    std::string address;  // of the peer
    std::string text;     // any bytes
    std::string method{}; // of the HTTP request that this is, or that this answers
    std::string path{};   // of the same request
    int status = 0;       // of an HTTP response
    std::string event{};  // instead of an answer: "timeout"
    std::size_t line = 0; // in the file it was read from
};

/// The entry as one line, without a line end. Reading it gives the same entry.
[[nodiscard]] std::string format_entry(const entry& what);

/// Throws std::runtime_error that says what is wrong with the line.
[[nodiscard]] entry parse_entry(const std::string& line);

/// All lines of a recording. Throws input_error that names the bad lines by number.
[[nodiscard]] std::vector<entry> read_recording(std::istream& from);
/// The same for a file, or for standard input if the path is "-".
[[nodiscard]] std::vector<entry> read_recording(const std::string& path);

/// Turns the journal's messages into entries. The recording begins with its construction.
class recorder {
public:
    /// nullopt for what has not passed between the daemon and a peer, such as the lab's remarks.
    [[nodiscard]] std::optional<entry> entry_of(const peers::message& what) const;

private:
    const std::chrono::system_clock::time_point start_ = std::chrono::system_clock::now();
};

/// A file that gets an entry per line. One thread at a time.
class recording_file {
public:
    /// Throws std::runtime_error when the file cannot be written.
    explicit recording_file(const std::string& path);

    void write(const entry& what);

private:
    std::ofstream file_;
};

} // namespace csi_lab
