/// The floor of a message: the same text parsed and written by the JSON library alone.
#pragma once

#include <cstddef>
#include <string>

// Here, because it configures the JSON library and must come before the library's own headers.
#include "platform/json.h"

namespace csi_bench {

/// Parses with the daemon's options. Returns the size of the text written.
[[nodiscard]] std::size_t parse_and_write(const std::string& text);

} // namespace csi_bench
