/// Which key somebody probably meant who wrote one that the daemon does not know.
#pragma once

#include <array>
#include <string_view>

namespace csi_doctor {

/// The keys that the daemon reads.
constexpr std::array<std::string_view, 9> known_keys = {"zorvin_uuid", "server", "routing",
                                                        "http_port",   "api",    "fusion",
                                                        "csi_file",    "log",    "log_path"};

/// One of the known keys; empty when none is likely.
[[nodiscard]] std::string_view suggest_key(std::string_view written);

} // namespace csi_doctor
