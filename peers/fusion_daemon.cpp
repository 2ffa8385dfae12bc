#include "peers/fusion_daemon.h"

namespace peers {

fusion_daemon::fusion_daemon(journal& record, std::uint32_t seed)
    : engines_({"cpd", "softSecurity"})
    , peer_(record, {"fusion", fusion_address, fusion_port, seed},
            [this](const std::string& request) {
                return std::vector<std::string>{answer(request)};
            }) {}

std::string fusion_daemon::answer(const std::string& request) {
    json::document parsed = json::parse(request);
    if (!parsed.IsObject()) {
        return refusal("no object");
    }
    if (json::find(parsed, "engineType") == nullptr) {
        return refusal("unknown command");
    }
    engines_.answer(parsed);
    return json::write(parsed);
}

} // namespace peers
