#include "lab/status.h"

#include <cstddef>

#include "client/fusion.h"
#include "core/core_request.h"
#include "peers/core_service.h"
#include "peers/engines.h"
#include "peers/fusion_daemon.h"
#include "peers/rest_server.h"

namespace csi_lab {
namespace {

/// "a, b" for {"a", "b"}.
std::string join(const std::vector<std::string>& items) {
    std::string result;
    for (const std::string& item : items) {
        result += (result.empty() ? "" : ", ") + item;
    }
    return result.empty() ? "none" : result;
}

std::string describe(const std::vector<peers::running_engine>& engines) {
    std::vector<std::string> items;
    items.reserve(engines.size());
    for (const peers::running_engine& engine : engines) {
        items.push_back(engine.type + " for " + engine.bot);
    }
    return "engines: " + join(items);
}

std::string describe(const peers::rest_server& server) {
    const std::string zorvin = server.attached_zorvin();
    return (zorvin.empty() ? "nothing attached" : "attached: Zorvin " + zorvin) +
           "; attaches: " + std::to_string(server.attaches()) +
           ", polls: " + std::to_string(server.gets()) +
           ", posts: " + std::to_string(server.posts()) +
           "; queued commands: " + std::to_string(server.queued());
}

std::string describe(const peers::core_service& core) {
    std::vector<std::string> sounded;
    for (const auto& bot : core.sounded()) {
        sounded.push_back(bot.uuid + " (rate " + std::to_string(bot.rate) + ")");
    }
    std::vector<std::string> heard;
    for (const auto& bot : core.heard()) {
        heard.push_back(bot.uuid);
    }
    return "interfaces: " + join(core.interfaces()) + "; sounding: " + join(sounded) +
           "; heard: " + join(heard) + "; " + describe(core.running_engines());
}

/// The peer's name, and what keeps it from answering.
template<class peer>
std::string heading(const std::string& name, const peer& of) {
    if (!of.running()) {
        return name + " [stopped]: ";
    }
    const bool wrong = of.faults().wrong != peers::wrong_answer::none;
    return name + (of.faults().silent ? " [silent]" : "") + (wrong ? " [wrong]: " : ": ");
}

} // namespace

std::vector<std::string> describe_addresses(peers::installation& lab) {
    std::vector<std::string> result;
    if (lab.has_server()) {
        result.push_back("server: http://127.0.0.1:" + std::to_string(lab.server().port()) +
                         ", API " + lab.options().api);
    }
    for (std::size_t index = 0; index < lab.core_count(); ++index) {
        result.push_back(lab.core(index).peer().name() + ": UDP port " +
                         std::to_string(csi_receiver::core_service_port));
    }
    if (lab.fusion() != nullptr) {
        result.push_back("fusion " + std::string(csi_receiver::fusion_address) + ": UDP port " +
                         std::to_string(csi_receiver::fusion_port));
    }
    return result;
}

std::vector<std::string> describe_state(peers::installation& lab) {
    std::vector<std::string> result;
    if (lab.has_server()) {
        result.push_back(heading("server", lab.server()) + describe(lab.server()));
    }
    for (std::size_t index = 0; index < lab.core_count(); ++index) {
        peers::core_service& core = lab.core(index);
        result.push_back(heading(core.peer().name(), core.peer()) + describe(core));
    }
    if (peers::fusion_daemon* const fusion = lab.fusion()) {
        result.push_back(heading("fusion", fusion->peer()) + describe(fusion->running_engines()));
    }
    return result;
}

} // namespace csi_lab
