/// Measures the daemon's worst cases: how long things take when a peer is silent, and how fast the
/// log grows in each state of the installation.
#pragma once

#include "soak/report.h"
#include "soak/run.h"

namespace csi_soak {

/// Takes some five minutes and four times as long as each state of the log is watched. Throws as
/// run_soak.
void measure_worst_cases(const soak_options& options, std::chrono::seconds each_state,
                         soak_report& report);

} // namespace csi_soak
