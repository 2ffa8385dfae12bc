#include "core/requests.h"

namespace csi_receiver {

json::document make_request(std::string_view command) {
    json::document request(rapidjson::kObjectType);
    json::set(request, "cmd", command, request.GetAllocator());
    return request;
}

bool tells_success(const json::document& reply) {
    const json::value* success = reply.IsObject() ? json::find(reply, "success") : nullptr;
    return success != nullptr && success->GetBool();
}

} // namespace csi_receiver
