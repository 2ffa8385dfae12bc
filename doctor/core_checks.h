/// The core services: whether each answers, and what it reports about the interfaces of its Bots.
#pragma once

#include "client/routing.h"
#include "doctor/findings.h"

namespace csi_doctor {

/// Pings the core service and asks about its interfaces, which changes nothing there. `is_last`:
/// the daemon waits for this one. Blocks for at most 4 s, and 4 s more for each interface.
void check_core_service(const csi_receiver::zorvin_entry& zorvin, bool is_last, report& findings);

} // namespace csi_doctor
