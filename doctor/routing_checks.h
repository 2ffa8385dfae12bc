/// The Bots in the routing: which of them the daemon drops, and which it takes but cannot reach.
#pragma once

#include <string>

#include "client/routing.h"
#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// Reads the routing into a table as the daemon does, but without its log lines.
void read_routing(const std::string& routing, csi_receiver::routing_table& into);

/// Nothing when the key is missing. Looks at nothing but the value.
void check_routing(const settings& from, report& to);

} // namespace csi_doctor
