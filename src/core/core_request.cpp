#include "core/core_request.h"

#include "core/requests.h"
#include "daemon/log.h"

namespace csi_receiver {
namespace {

constexpr attempt_timeouts timeouts_ms = {core_request_timeout_ms, core_request_timeout_ms};
static_assert(timeouts_ms.size() == core_request_attempts);

} // namespace

json::document core_request(const std::string& address, const json::value& request) {
    const std::string text = json::write(request);
    const std::optional<std::string> reply = ask(address, core_service_port, text, timeouts_ms);
    if (!reply) {
        return {};
    }
    if (reply->empty()) {
        log_prefix() << address << ": failed to send " << text;
        return {};
    }
    return parse_reply(*reply);
}

} // namespace csi_receiver
