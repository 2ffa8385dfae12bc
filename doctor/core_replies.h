/// The replies of a core service: whether the daemon can use them.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// What the daemon does about an interface when there is no usable reply to "info".
constexpr const char* skips_interface =
    "the daemon will skip this interface and, unless another one is in mode ap, report an empty "
    "driver, an empty SSID and 0 chains to the server";

/// False, with a finding, when the daemon does not count the reply as an answer to its ping.
/// `effect`: what the daemon does then.
[[nodiscard]] bool check_ping_reply(const std::string& reply, const std::string& where,
                                    const std::string& effect, report& findings);

/// Checks a reply to "info". Takes any text: wrong types, which end the daemon, become findings.
void check_info_reply(const std::string& reply, const std::string& where, report& findings);

/// Checks a reply to "active_bots" likewise; no finding when the daemon can read it.
void check_active_bots_reply(const std::string& reply, const std::string& where, report& findings);

} // namespace csi_doctor
