/// Shows messages to people, one line per message.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "peers/journal.h"

namespace csi_lab {

/// What kind of message it is: "attach", "scan report", "status", "command", "request", "reply",
/// "remark" or "log", for a line of the daemon's log.
[[nodiscard]] std::string label_of(const peers::message& what);

/// Local time, direction, label and text, in columns, without a line end. Control characters are
/// escaped.
[[nodiscard]] std::string format_line(const peers::message& what, bool color);

/// Writes whole lines and flushes them. May be called from any thread.
class printer {
public:
    using sink = std::function<void(const std::string&)>;

    /// With `json`, standard output is left to show_json; all else goes to standard error.
    printer(bool color, bool json);

    void show(const peers::message& what);
    void show_json(const std::string& line);
    void say(const std::string& line);

    /// The sink gets the lines from now on; an empty one ends that.
    void redirect(sink to);
    /// The sink also gets the lines from now on, but no messages; an empty one ends that.
    void copy(sink to);

private:
    void write(const std::string& line);

    const bool color_;
    const bool json_;
    std::mutex mutex_; // guards the streams and the sinks
    sink sink_;
    sink copy_;
};

} // namespace csi_lab
