#include "core/core_request.h"

#include "daemon/log.h"
#include "platform/udp_client.h"

namespace csi_receiver {

json::document core_request(const std::string& address, const json::value& request) {
    udp_client client(address, core_service_port);
    if (client.fd() < 0) {
        return {};
    }
    const std::string text = json::write(request);
    std::string reply;
    for (int attempt = 0; attempt < core_request_attempts && reply.empty(); ++attempt) {
        reply = client.exchange(text, core_request_timeout_ms);
    }
    if (reply.empty()) {
        log_prefix() << address << ": failed to send " << text;
        return {};
    }
    json::document answer = json::parse(reply);
    if (!answer.IsObject()) {
        log_prefix() << "Error: " << reply;
    }
    return answer;
}

} // namespace csi_receiver
