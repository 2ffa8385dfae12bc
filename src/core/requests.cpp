#include "core/requests.h"

#include "core/core_request.h"
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

std::string reading_of_reply::describe() const {
    constexpr std::size_t longest_reply = 500;
    std::string reply = json::write(reply_);
    if (reply.size() > longest_reply) {
        reply.resize(longest_reply);
        reply += "...";
    }
    return "core service " + address_ + " broke its protocol: it answered " +
           json::write(request_) + " with " + reply;
}

bool succeeds(const std::string& address, const json::document& request) {
    const json::document reply = core_request(address, request);
    const reading_of_reply reading(address, request, reply);
    const json::value* success = reply.IsObject() ? json::find(reply, "success") : nullptr;
    return success != nullptr && success->GetBool();
}

} // namespace csi_receiver
