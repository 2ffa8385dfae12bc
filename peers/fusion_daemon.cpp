#include "peers/fusion_daemon.h"

#include "client/fusion.h"
#include "peers/replies.h"
#include "platform/json.h"

namespace peers {

fusion_daemon::fusion_daemon(journal& record, std::uint32_t seed)
    : engines_({"cpd", "softSecurity"})
    , peer_(record,
            {"fusion", csi_receiver::fusion_address, csi_receiver::fusion_port, seed,
             std::chrono::milliseconds(5500)},
            [this](const std::string& request) { return answer(request); }) {}

std::string fusion_daemon::answer(const std::string& request) {
    json::document parsed = json::parse(request);
    if (!parsed.IsObject()) {
        return failure_reply("no object");
    }
    if (json::find(parsed, "engineType") == nullptr) {
        return failure_reply("unknown command");
    }
    engines_.handle(parsed);
    return json::write(parsed);
}

} // namespace peers
