/// The one path for a JSON request to the core service of a Zorvin and its reply.
#pragma once

#include <cstdint>
#include <string>

#include "platform/json.h"

namespace csi_receiver {

constexpr std::uint16_t core_service_port = 14310;
constexpr int core_request_timeout_ms = 2000;
constexpr int core_request_attempts = 2;

/// Sends `request` as one datagram to the core service at `address` (an IPv4 literal) and returns
/// its reply. Blocks for 4 s at most. The reply is not an object when nothing usable came; that has
/// been logged, unless no socket could be made. Any thread.
[[nodiscard]] json::document core_request(const std::string& address, const json::value& request);

} // namespace csi_receiver
