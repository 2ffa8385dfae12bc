/// The fusion daemon: a service on this access point that runs engines of its own.
#pragma once

#include <cstdint>
#include <string>

#include "core/requests.h"
#include "platform/json.h"

namespace csi_receiver {

constexpr const char* fusion_address = "127.0.0.1";
constexpr std::uint16_t fusion_port = 14312;
constexpr attempt_timeouts fusion_timeouts_ms = {5000, 2000};

/// The object that names a Bot in a request: {"zorvin_addr": ..., "uuid": ...}, both copied into
/// `memory`.
[[nodiscard]] json::value make_bot_ref(const std::string& zorvin_address, const std::string& uuid,
                                       json::allocator& memory);

/// Sends `request` as one datagram and returns the fusion daemon's reply, which is not an object
/// when nothing usable came. Blocks for the sum of the time-outs at most, by default 7 s. Main
/// thread only.
[[nodiscard]] json::document
fusion_request(const json::value& request,
               const attempt_timeouts& timeouts_ms = fusion_timeouts_ms);

} // namespace csi_receiver
