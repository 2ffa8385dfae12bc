/// The played installation, and everybody who looks at what passes: people, files, scripts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "lab/commands.h"
#include "lab/console.h"
#include "lab/daemon_runner.h"
#include "lab/filter.h"
#include "lab/options.h"
#include "lab/printer.h"
#include "lab/recording.h"
#include "lab/script.h"
#include "lab/traffic.h"
#include "peers/installation.h"
#include "peers/journal.h"

namespace csi_lab {

/// Messages are shown and recorded from construction to destruction, which ends the daemon first.
class session {
public:
    using observer = std::function<void(const entry&)>;
    using note_observer = std::function<void(const std::string& kind, const std::string& text)>;

    /// The observers get all entries, and lines of the daemon's "log" and "remark"s of the lab,
    /// under the journal's lock. Throws std::runtime_error when a peer's address or a file cannot
    /// be had.
    session(const arguments& given, printer& to, observer watch, note_observer watch_notes = {});
    ~session();
    session(const session&) = delete;
    session& operator=(const session&) = delete;

    /// Starts the program with the configuration that matches the peers. A port other than 0 is
    /// that of a server which is not played.
    void run_daemon(const std::string& program, std::uint16_t http_port = 0);
    void end_daemon() { daemon_.reset(); }

    /// Shows a line, and lets expectations see it.
    void say(const std::string& line);

    [[nodiscard]] peers::journal& journal() { return journal_; }
    [[nodiscard]] peers::installation& lab() { return *lab_; }
    [[nodiscard]] stage on() { return {*lab_, daemon_.get()}; }
    [[nodiscard]] traffic& seen() { return seen_; }

private:
    void note_traffic(const peers::message& what);
    void note_message(const peers::message& what);

    const bool quiet_;
    const bool json_;
    printer& to_;
    filter filter_;
    recorder recorder_;
    std::optional<recording_file> file_;
    observer watch_;
    note_observer watch_notes_;
    traffic seen_;
    peers::journal journal_;
    std::unique_ptr<peers::installation> lab_; // its threads use all of the above
    std::unique_ptr<daemon_runner> daemon_;
};

} // namespace csi_lab
