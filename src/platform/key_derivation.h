/// The derivation of pre-shared keys. The only file that needs libcrypto.
#pragma once

#include <string>

namespace csi_receiver {

/// The pre-shared key of the network named `salt`, as 64 hexadecimal digits; empty when the
/// derivation fails. Takes milliseconds of CPU time. Any thread.
[[nodiscard]] std::string derive_psk(const std::string& salt);

} // namespace csi_receiver
