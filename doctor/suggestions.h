/// Which key somebody meant who wrote one that the daemon does not know.
#pragma once

#include <array>
#include <string>

namespace csi_doctor {

/// The keys that the daemon reads.
constexpr std::array<const char*, 9> known_keys = {"zorvin_uuid", "server", "routing",
                                                   "http_port",   "api",    "fusion",
                                                   "csi_file",    "log",    "log_path"};

/// One of the known keys; empty when none is likely.
[[nodiscard]] std::string likely_meant(const std::string& key);

} // namespace csi_doctor
