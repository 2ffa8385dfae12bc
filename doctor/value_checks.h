/// Values that mean something else to the daemon than they look like.
#pragma once

#include <string>

#include "doctor/findings.h"
#include "doctor/syntax_checks.h"

namespace csi_doctor {

/// All keys but "routing", each if it is there. Looks at nothing but the values.
void check_values(const settings& from, report& to);

/// The directory that holds the path's last part.
[[nodiscard]] std::string parent_directory(std::string path);

/// Whether the log goes to a file and not to standard output.
[[nodiscard]] bool logs_to_file(const settings& from);

} // namespace csi_doctor
