/// What the fuzz targets share: answers instead of the daemon's peers, a harmless end of the
/// daemon, and its log.
#pragma once

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>

// The targets' properties are assertions.
#undef NDEBUG
#include <cassert>

namespace fuzz {

/// Tries one input. Each target defines this function.
void run(const std::string& input);

/// The log of the daemon since the input began.
inline std::ostringstream log;

/// Returns the answer to a request from the daemon. An empty answer stands for none at all, and so
/// does an empty function.
inline std::function<std::string(std::uint16_t port, const std::string& request)> answer;

/// True while the daemon has an answer in which a member has the wrong type, which must end it. Its
/// JSON assertion then throws daemon_end. An assertion that fails at any other time is a bug, and
/// so is a daemon that continues.
inline bool end_expected = false;
struct daemon_end {};

/// False if the command in the request must end the daemon on this reply of a core service.
bool is_valid_reply(const std::string& request, const std::string& reply);

} // namespace fuzz
