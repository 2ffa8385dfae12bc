/// The configured name of the REST server as libcurl reads it within a URL, whether or not such a
/// host exists.
#pragma once

#include <optional>
#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// What is wrong with the value of "server", as a clause that follows it, and without a place.
[[nodiscard]] std::optional<finding> check_host_name(const std::string& server);

} // namespace csi_doctor
