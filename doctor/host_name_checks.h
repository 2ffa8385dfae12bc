/// The server's name as libcurl reads it within a URL, apart from whether it exists.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// What to say about the name: level::ok when nothing is wrong. Without a place.
[[nodiscard]] finding judge_server(const std::string& server);

} // namespace csi_doctor
