/// What the commands to a core service share: how a request begins and how a reply tells success.
#pragma once

#include <string_view>

#include "platform/json.h"

namespace csi_receiver {

/// {"cmd": command}, for more members to follow.
[[nodiscard]] json::document make_request(std::string_view command);

/// The reply's "success"; false when there is none. One that is no boolean ends the process.
[[nodiscard]] bool tells_success(const json::document& reply);

} // namespace csi_receiver
