#include "client/engine_commands.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "client/fusion.h"
#include "core/bot_commands.h"
#include "core/core_request.h"
#include "daemon/log.h"

namespace csi_receiver {
namespace {

/// The engines of the fusion daemon, whether or not the server was offered them.
bool is_fusion_engine(const std::string& engine) {
    return engine == "cpd" || engine == "softSecurity";
}

json::value* find_array(json::value& object, std::string_view name) {
    json::value* const found = json::find(object, name);
    return found != nullptr && found->IsArray() ? found : nullptr;
}

json::value bot_ref(const bot_record& bot, json::allocator& memory) {
    return make_bot_ref(bot.zorvin.address, bot.uuid, memory);
}

/// Turns the Bot objects of the fusion daemon's reply back into the uuids that the server knows.
void flatten_bots(json::document& reply) {
    json::allocator& memory = reply.GetAllocator();
    const auto uuid_of = [](const json::value& bot) {
        return bot.IsObject() ? json::find_string(bot, "uuid") : std::nullopt;
    };
    json::value* const bot = json::find(reply, "bot");
    if (bot != nullptr && uuid_of(*bot)) {
        *bot = json::make_string(*uuid_of(*bot), memory);
    }
    if (json::value* const bots = find_array(reply, "bots")) {
        json::value uuids(rapidjson::kArrayType);
        for (const json::value& element : bots->GetArray()) {
            if (uuid_of(element)) {
                uuids.PushBack(json::make_string(*uuid_of(element), memory), memory);
            }
        }
        *bots = uuids;
    }
}

json::document ask_fusion(const std::string& text, json::document& message,
                          const bot_record* selected, const std::vector<bot_record*>& targets) {
    log_prefix() << "--> to fusion engine --> " << text;
    json::allocator& memory = message.GetAllocator();
    if (selected != nullptr) {
        json::set(message, "bot", bot_ref(*selected, memory), memory);
    } else if (json::value* const bots = find_array(message, "bots")) {
        bots->SetArray();
        for (const bot_record* const target : targets) {
            bots->PushBack(bot_ref(*target, memory), memory);
        }
    }
    json::document reply = fusion_request(message);
    if (reply.IsObject()) {
        flatten_bots(reply);
    }
    return reply;
}

json::document ask_local_engine(const std::string& text, const json::document& message,
                                const std::vector<bot_record*>& targets) {
    if (targets.empty()) {
        return {}; // which core service should run the engine is undefined
    }
    const std::string& address = targets.front()->zorvin.address;
    log_prefix() << "--> to local engine at " << address << " --> " << text;
    return core_request(address, message);
}

} // namespace

json::document engine_commands::execute(const std::string& text, json::document& message,
                                        bot_record* selected) {
    const std::string engine(json::find_string(message, "engineType").value_or(""));
    const std::string word(json::find_string(message, "cmd").value_or(""));
    const targets_type targets = find_targets(message, selected);
    // Whatever the engine answers: the Bots sound before it starts, and stop after it has stopped.
    if (word == "start") {
        start(engine, targets);
    }
    json::document reply = forward(engine, text, message, selected, targets);
    if (word == "stop") {
        stop(engine, targets);
    }
    if (reply.IsObject() && json::find_string(reply, "ifname")) {
        reply.EraseMember("ifname"); // keeps the order of the others
    }
    return reply;
}

json::document engine_commands::forward(const std::string& engine, const std::string& text,
                                        json::document& message, const bot_record* selected,
                                        const targets_type& targets) {
    if (state_.shutting_down()) {
        return {};
    }
    return is_fusion_engine(engine) ? ask_fusion(text, message, selected, targets)
                                    : ask_local_engine(text, message, targets);
}

engine_commands::targets_type engine_commands::find_targets(json::document& message,
                                                            bot_record* selected) {
    if (selected != nullptr) {
        return {selected};
    }
    targets_type targets;
    if (const json::value* const bots = find_array(message, "bots")) {
        for (const json::value& element : bots->GetArray()) {
            const auto known = element.IsString()
                                   ? routing_.find_bot_by_uuid(std::string(json::text_of(element)))
                                   : routing_.bots().end();
            if (known != routing_.bots().end()) {
                targets.push_back(&*known);
            }
        }
    }
    return targets;
}

void engine_commands::start(const std::string& engine, const targets_type& targets) {
    for (bot_record* const bot : targets) {
        if (state_.shutting_down()) {
            return;
        }
        start_sounding(*bot, state_.core_rate());
        std::vector<std::string>& engines = bot->engines;
        const bool runs = std::find(engines.begin(), engines.end(), engine) != engines.end();
        if (!runs) {
            engines.push_back(engine);
        }
        log_prefix() << (runs ? "restarting bot " : "starting bot ") << bot->uuid << " for "
                     << engine << " engine";
    }
}

void engine_commands::stop(const std::string& engine, const targets_type& targets) {
    for (bot_record* const bot : targets) {
        std::vector<std::string>& engines = bot->engines;
        engines.erase(std::remove(engines.begin(), engines.end(), engine), engines.end());
        if (engines.empty() && !state_.shutting_down()) {
            stop_sounding(*bot);
            log_prefix() << "engine list for bot " << bot->uuid << " empty, stopping bot";
        }
    }
}

} // namespace csi_receiver
