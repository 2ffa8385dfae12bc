/// Checks that a log name which is a FIFO does not stop the daemon.
#pragma once

#include "soak/report.h"
#include "soak/run.h"

namespace csi_soak {

/// Takes some seconds. Throws like run_soak.
void check_fifo_as_log(const run_options& options, reporter& report);

} // namespace csi_soak
