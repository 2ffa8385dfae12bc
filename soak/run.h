/// The soak: the daemon under load and faults for some minutes, and what must hold meanwhile.
#pragma once

#include <cstdint>
#include <string>

#include "soak/report.h"

namespace csi_soak {

struct soak_options {
    std::string daemon; ///< The program.
    std::string folder; ///< For configurations, logs and output; exists.
    double minutes = 2;
    std::uint32_t seed = 1;
};

/// Throws std::runtime_error when the lab or the daemon cannot be started. All else is in the
/// report.
void run_soak(const soak_options& options, soak_report& report);

} // namespace csi_soak
