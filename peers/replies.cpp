#include "peers/replies.h"

#include "platform/json.h"

namespace peers {

std::string success_reply() {
    return R"({"success":true})";
}

std::string failure_reply(const std::string& reason) {
    json::document reply(rapidjson::kObjectType);
    json::set(reply, "success", json::value(false), reply.GetAllocator());
    json::set(reply, "reason", reason, reply.GetAllocator());
    return json::write(reply);
}

} // namespace peers
