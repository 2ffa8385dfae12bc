/// The daemon's peers, checked without disturbing any of them: no interface is added or deleted,
/// nothing sounds, no engine gets a command and the REST server gets no request.
#pragma once

#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// Blocks for up to 4 s for each silent core service and interface, and 5 s for the REST server.
void check_network(const settings& config, report& findings);

} // namespace csi_doctor
