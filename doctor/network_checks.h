/// The daemon's peers, asked so that none of them is disturbed: no interface is added or deleted,
/// nothing sounds, no engine is commanded and nothing is requested from the REST server.
#pragma once

#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// Blocks for up to 4 s for each core service and interface that is silent, and 5 s for the server.
void check_network(const settings& from, report& to);

} // namespace csi_doctor
