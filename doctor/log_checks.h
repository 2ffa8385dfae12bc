/// Whether the daemon can write its log file; found out without writing or rotating anything.
#pragma once

#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// Checks the permissions of the user that runs this process.
void check_log_file(const settings& config, report& findings);

} // namespace csi_doctor
