#include "client/fusion.h"

#include "daemon/log.h"

namespace csi_receiver {

json::value make_bot_ref(const std::string& zorvin_address, const std::string& uuid,
                         json::allocator& memory) {
    json::value reference(rapidjson::kObjectType);
    json::set(reference, "zorvin_addr", zorvin_address, memory);
    json::set(reference, "uuid", uuid, memory);
    return reference;
}

json::document fusion_request(const json::value& request, const attempt_timeouts& timeouts_ms) {
    const std::string text = json::write(request);
    const std::optional<std::string> reply = ask(fusion_address, fusion_port, text, timeouts_ms);
    if (!reply) {
        return {};
    }
    if (reply->empty()) {
        log_prefix() << "failed to send to zorvin-fusion " << text;
        log_prefix() << "fusion service request failed!";
        return {};
    }
    print_to_console("resp from fusion daemon is " + *reply + "\n");
    return parse_reply(*reply);
}

} // namespace csi_receiver
