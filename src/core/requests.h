/// What requests to the local daemons share: the exchange, how a reply is taken, how a command to a
/// core service begins and how its reply tells success.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/json.h"

namespace csi_receiver {

/// How long each attempt waits for a reply, in ms.
using attempt_timeouts = std::array<int, 2>;

/// Sends the text as one datagram from a fresh port, and once more from the same when no reply
/// comes. Nothing when there is no socket to the address; an empty reply when none came. A reply
/// that comes late is taken for the second attempt's: both carry the same request.
[[nodiscard]] std::optional<std::string> ask(const std::string& address, std::uint16_t port,
                                             const std::string& text,
                                             const attempt_timeouts& timeouts_ms);

/// Parses a reply; one that is no object is logged.
[[nodiscard]] json::document parse_reply(const std::string& reply);

/// {"cmd": command}, for more members to follow.
[[nodiscard]] json::document make_request(std::string_view command);

/// The reply's "success"; false when there is none. One that is no boolean ends the process.
[[nodiscard]] bool tells_success(const json::document& reply);

} // namespace csi_receiver
