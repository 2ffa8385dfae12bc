/// Whether the daemon could open its log file, found out without writing or rotating anything.
#pragma once

#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// For the user that runs this process.
void check_log_file(const settings& from, report& to);

} // namespace csi_doctor
