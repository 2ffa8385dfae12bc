/// Shows messages to people, a line each.
#pragma once

#include <mutex>
#include <string>

#include "peers/journal.h"

namespace csi_lab {

/// What a message is, in a word or two: "attach", "scan report", "status", "command", "request",
/// "reply" or "remark".
[[nodiscard]] std::string label_of(const peers::message& what);

/// Local time, direction, label and text, in columns; without a line end. Characters that would
/// disturb a terminal are escaped.
[[nodiscard]] std::string format_line(const peers::message& what, bool color);

/// Writes whole lines to standard output, flushed. May be called from any thread.
class printer {
public:
    explicit printer(bool color);

    void show(const peers::message& what);
    void say(const std::string& line);

private:
    const bool color_;
    std::mutex mutex_;
};

} // namespace csi_lab
