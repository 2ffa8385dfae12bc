/// Simulated days: the daemon under libfaketime, which makes its clocks run faster or jump.
#pragma once

#include <string>

#include "soak/report.h"
#include "soak/run.h"

namespace csi_soak {

struct days_options {
    double days = 30;
    std::string clock_library; // path of libfaketime
};

/// A run of that many days, at a thousand times the real speed, from the evening of 18 January
/// 2038 on; after that a short run at real speed whose wall clock jumps. Throws like run_soak.
void run_days(const run_options& options, const days_options& days, reporter& report);

} // namespace csi_soak
