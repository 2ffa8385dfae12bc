/// Commands to a core service that concern Bots: which ones it sees, and their sounding.
///
/// Each makes one core_request, which may block for 4 s; none logs anything itself. A reply with a
/// member of the wrong type ends the process on purpose. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/routing.h"

namespace csi_receiver {

/// The uuids of the Bots that the core service sees traffic from, in its order; empty on failure.
[[nodiscard]] std::vector<std::string> core_active_bots(const std::string& address);

/// Makes the Bot sound at `rate`, in the core service's unit; 0 stops it. True when the core
/// service reports success.
bool core_sounding(const zorvin_entry& zorvin, const bot_record& bot, std::uint32_t rate,
                   bool quiet);

/// core_sounding on the server's behalf. The Bot's flag changes before the request is sent, and
/// keeps its new value when the request fails.
bool start_sounding(bot_record& bot, std::uint32_t rate);
bool stop_sounding(bot_record& bot);

} // namespace csi_receiver
