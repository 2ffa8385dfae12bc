/// The soak itself: the daemon under load and faults for some minutes.
#pragma once

#include <cstdint>
#include <string>

#include "soak/report.h"

namespace csi_soak {

struct run_options {
    std::string daemon; // path of the program
    std::string folder; // for configurations, logs and output; must exist
    double minutes = 2;
    std::uint32_t seed = 1;
    std::string samples; // path of the file for samples; empty: none
};

/// Throws std::runtime_error when the peers or the daemon cannot be started. Every other failure
/// goes to the report.
void run_soak(const run_options& options, reporter& report);

} // namespace csi_soak
