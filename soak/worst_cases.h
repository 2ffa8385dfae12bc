/// Measures the daemon's worst cases: how long things take when a peer is silent, how long
/// the end takes, and how fast the log grows in each state.
#pragma once

#include <chrono>

#include "soak/report.h"
#include "soak/run.h"

namespace csi_soak {

/// Takes about eight minutes, plus `each_state` for each of four states of the log. Throws like
/// run_soak, also when the daemon does not do what a case needs.
void measure_worst_cases(const run_options& options, std::chrono::seconds each_state,
                         reporter& report);

} // namespace csi_soak
