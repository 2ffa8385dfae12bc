/// Shows messages to people, one line per message.
#pragma once

#include <mutex>
#include <string>

#include "peers/journal.h"

namespace csi_lab {

/// What kind of message it is: "attach", "scan report", "status", "command", "request", "reply" or
/// "remark".
[[nodiscard]] std::string label_of(const peers::message& what);

/// Local time, direction, label and text, in columns, without a line end. Control characters are
/// escaped.
[[nodiscard]] std::string format_line(const peers::message& what, bool color);

/// Writes whole lines to standard output and flushes it. May be called from any thread.
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
