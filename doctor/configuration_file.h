/// The configuration file: whether the daemon can read it.
#pragma once

#include <optional>
#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// The file's text. Nothing, with a finding, when it cannot be read.
[[nodiscard]] std::optional<std::string> read_configuration_file(const std::string& path,
                                                                 report& findings);

} // namespace csi_doctor
