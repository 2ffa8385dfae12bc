/// Messages between the daemon and its peers, and which schema each must satisfy.
#pragma once

#include <string>
#include <vector>

namespace contract {

/// One message as it was on the wire.
struct exchange {
    std::string from; // "daemon", "server", "fusion", or "core" with or without an address
    std::string to;
    std::string text;    // empty for a GET, and for an answer without a body
    std::string request; // the message that this one answers or replies to; empty if none
    std::string method;  // of HTTP, empty if unknown: then `text` and `request` decide
    std::string path;    // of HTTP, empty if unknown
};

/// A schema: a file in protocol/schemas and the definition in it.
struct kind {
    std::string family;  // such as "command"; empty: nothing to judge
    std::string message; // such as "start"; empty: any of the family

    bool operator==(const kind& other) const {
        return family == other.family && message == other.message;
    }
};

/// "command/start"; "command" for any of the family; empty when there is nothing to judge.
[[nodiscard]] std::string name_of(const kind& what);

/// The kind with that name.
[[nodiscard]] kind kind_named(const std::string& name);

/// All kinds that have a schema, in alphabetical order.
[[nodiscard]] std::vector<kind> all_kinds();

/// The schema for the message. Nothing to judge are polls, empty answers, and what the daemon
/// ignores: the server's answers to replies and unsolicited messages.
[[nodiscard]] kind classify(const exchange& what);

} // namespace contract
