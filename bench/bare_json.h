/// The floor of a message: the same text parsed, extended and written by the JSON library alone.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Here, because it configures the JSON library and must come before the library's own headers.
#include "platform/json.h"

namespace csi_bench {

/// What a reply has besides its command: names and texts. A null text stands for false.
using reply_members = std::vector<std::pair<const char*, const char*>>;

/// Parses with the daemon's options, adds the members, and returns the text of the object.
[[nodiscard]] std::string parse_and_write(const std::string& text, const reply_members& members);

} // namespace csi_bench
