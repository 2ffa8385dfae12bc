/// The short replies that all UDP services give.
#pragma once

#include <string>

namespace peers {

/// {"success":true}
[[nodiscard]] std::string success_reply();

/// {"success":false,"reason":...}
[[nodiscard]] std::string failure_reply(const std::string& reason);

} // namespace peers
