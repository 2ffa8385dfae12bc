/// Which build this is.
#pragma once

#include <string>

namespace csi_receiver {

/// "v1.0-12-g0123456789ab (built on Mar  7 2026 09:05:01)": the release, the commits since it, and
/// the commit.
[[nodiscard]] std::string version();

} // namespace csi_receiver
