/// Values that do not mean to the daemon what they seem to mean.
#pragma once

#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// Checks every key in the configuration except "routing". Looks at nothing but the values.
void check_values(const settings& config, report& findings);

} // namespace csi_doctor
