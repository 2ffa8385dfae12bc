/// The configuration file: whether it is a file that the daemon can read.
#pragma once

#include <optional>
#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// The file's text. Nothing, with one finding, when it cannot be read, is not a regular file or has
/// 1 MiB or more.
[[nodiscard]] std::optional<std::string> read_configuration_file(const std::string& path,
                                                                 report& findings);

} // namespace csi_doctor
