/// The core services: whether each answers, and what it says about the interfaces of its Bots.
#pragma once

#include <string>

#include "client/routing.h"
#include "doctor/findings.h"

namespace csi_doctor {

/// Pings the core service and asks about its interfaces; changes nothing there. The last one
/// decides whether the daemon starts. Blocks for at most 4 s, and 4 s more for each interface.
void check_core_service(const csi_receiver::zorvin_entry& zorvin, bool is_last, report& to);

/// Judges a reply to "info". Any text: unlike the daemon's own reader it survives wrong types.
void check_info_reply(const std::string& reply, const std::string& where, report& to);

} // namespace csi_doctor
