/// Judges a message by its schema, with the daemon's own rules for what is JSON and an integer.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "contract/exchange.h"

namespace contract {

struct breach {
    std::string path;   // the member, as a JSON pointer: "/bots/0/count"; empty: the message
    std::string wanted; // what it must be, in words: "a boolean", "present"
    bool fatal;         // ends the daemon
};

/// "/bots/0/count must be an integer from 0 to ...: ends the daemon".
[[nodiscard]] std::string describe(const breach& what);

/// How the text breaks the schema; empty if it satisfies it, or if there is nothing to judge. One
/// breach per member, the innermost ones only. Any thread.
[[nodiscard]] std::vector<breach> judge(const kind& what, std::string_view text);

} // namespace contract
