/// Whether a fusion daemon runs on this machine.
#pragma once

#include "doctor/findings.h"

namespace csi_doctor {

/// Asks the kernel, not the fusion daemon: that takes any datagram for a command.
void check_fusion_daemon(report& findings);

} // namespace csi_doctor
