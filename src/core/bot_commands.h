/// Commands to a core service that concern Bots: which it sees, and their sounding.
///
/// Each is one core_request and blocks no longer than that; none logs. Replies are read without a
/// test of their types: a core service that answers with a wrong type ends the process on purpose.
/// Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/routing.h"

namespace csi_receiver {

/// The uuids of the Bots that the core service gets traffic from, as it lists them; empty on
/// failure.
[[nodiscard]] std::vector<std::string> core_active_bots(const std::string& address);

/// Makes the Bot sound at `rate` (0 stops it; the unit is the core service's). True when the core
/// service says success.
bool core_sounding(const zorvin_entry& zorvin, const bot_record& bot, std::uint32_t rate,
                   bool quiet);

/// core_sounding on the server's behalf. The Bot's flag changes before the request is sent, and
/// stays so when it fails.
bool start_sounding(bot_record& bot, std::uint32_t rate);
bool stop_sounding(bot_record& bot);

} // namespace csi_receiver
