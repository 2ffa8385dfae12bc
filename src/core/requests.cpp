#include "core/requests.h"

#include "daemon/log.h"
#include "platform/udp_client.h"

namespace csi_receiver {

std::optional<std::string> ask(const std::string& address, std::uint16_t port,
                               const std::string& text, const attempt_timeouts& timeouts_ms) {
    udp_client client(address, port);
    if (client.fd() < 0) {
        return std::nullopt;
    }
    std::string reply;
    for (const int timeout_ms : timeouts_ms) {
        reply = client.exchange(text, timeout_ms);
        if (!reply.empty()) {
            break;
        }
    }
    return reply;
}

json::document parse_reply(const std::string& reply) {
    json::document answer = json::parse(reply);
    if (!answer.IsObject()) {
        log_prefix() << "Error: " << reply;
    }
    return answer;
}

json::document make_request(std::string_view command) {
    json::document request(rapidjson::kObjectType);
    json::set(request, "cmd", command, request.GetAllocator());
    return request;
}

bool reports_success(const json::document& reply) {
    const json::value* success = reply.IsObject() ? json::find(reply, "success") : nullptr;
    return success != nullptr && success->GetBool();
}

} // namespace csi_receiver
