/// Measures how long the daemon takes to end after SIGTERM, in each state that it can be in.
#pragma once

#include "soak/report.h"
#include "soak/run.h"

namespace csi_soak {

/// Checks each time against the bound for its state. Takes about four minutes. Throws like
/// run_soak, also when the daemon does not reach a state.
void measure_ends(const run_options& options, reporter& report);

} // namespace csi_soak
