/// The Bots in the routing: which ones the daemon drops, and which it accepts but cannot reach.
#pragma once

#include <string>

#include "client/routing.h"
#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// Adds the routing to the table as the daemon does, but without its log lines.
void read_routing(const std::string& routing, csi_receiver::routing_table& table);

/// Checks nothing when the key is missing. Looks at nothing but the value.
void check_routing(const settings& config, report& findings);

} // namespace csi_doctor
