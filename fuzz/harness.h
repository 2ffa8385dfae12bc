/// What the fuzz targets share: the place of the daemon's peers, its end on purpose, and its log.
#pragma once

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>

// The targets' properties are assertions.
#undef NDEBUG
#include <cassert>

namespace fuzz {

/// The target's work on one input; each target defines it.
void run(const std::string& input);

/// What the daemon has said since the input began.
inline std::ostringstream log;

/// Gives the reply to each request of the daemon's; an empty one stands for a peer that is away.
inline std::function<std::string(std::uint16_t port, const std::string& request)> answer;

/// Set by `answer` when its reply has a wrong type on which the daemon ends on purpose. Then the
/// JSON assertion throws wanted_end, which ends the input. An assertion that fails at any other
/// time is a fault, and so is a daemon that goes on.
inline bool end_is_wanted = false;
struct wanted_end {};

} // namespace fuzz
