/// Values of the sample configuration that must be replaced.
#pragma once

#include <string>

#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// Whether the configuration is for csi_lab, which has the sample's identity and Bots: its server
/// is on this machine.
[[nodiscard]] bool is_for_lab(const settings& config);

[[nodiscard]] bool is_sample_hwaddr(const std::string& hwaddr);

/// Checks the identity. The sample's server and Bots are found where those are checked.
void check_sample_identity(const settings& config, report& findings);

} // namespace csi_doctor
