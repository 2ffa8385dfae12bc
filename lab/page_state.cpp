#include "lab/page_state.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "contract/schemas.h"
#include "peers/wrong_answers.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

/// The name that commands have for the peer: "core:127.0.0.1" for "core 127.0.0.1".
std::string command_name(std::string name) {
    std::replace(name.begin(), name.end(), ' ', ':');
    return name;
}

std::string name_of(peers::wrong_answer kind) {
    const auto& rows = peers::wrong_answers();
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.kind == kind; });
    return found == rows.end() ? "off" : std::string(found->name);
}

/// Builds one JSON document.
class description {
public:
    json::document& root() { return root_; }
    json::allocator& memory() { return root_.GetAllocator(); }

    template<class peer>
    json::value of_peer(const peer& of) {
        const auto faults = of.faults();
        json::value result(rapidjson::kObjectType);
        json::set(result, "running", json::value(of.running()), memory());
        json::set(result, "silent", json::value(faults.silent), memory());
        json::set(result, "wrong", name_of(faults.wrong), memory());
        json::set(result, "delay", json::value(static_cast<std::int64_t>(faults.delay.count())),
                  memory());
        return result;
    }
    json::value of_engines(const std::vector<peers::running_engine>& engines) {
        json::value result(rapidjson::kArrayType);
        for (const peers::running_engine& one : engines) {
            json::value engine(rapidjson::kObjectType);
            json::set(engine, "type", one.type, memory());
            json::set(engine, "bot", one.bot, memory());
            result.PushBack(engine, memory());
        }
        return result;
    }

private:
    json::document root_{rapidjson::kObjectType};
};

struct bot_state {
    std::uint32_t rate = 0;  // of sounding; 0: not sounded
    std::uint32_t count = 0; // of measurements; 0: not heard
    bool absent = false;
};

/// By uuid, those of which the core service knows something.
std::map<std::string, bot_state> bot_states(const peers::core_service& core) {
    std::map<std::string, bot_state> result;
    for (const auto& one : core.sounded()) {
        result[one.uuid].rate = one.rate;
    }
    for (const auto& one : core.heard()) {
        result[one.uuid].count = one.count;
    }
    for (const std::string& uuid : core.absent()) {
        result[uuid].absent = true;
    }
    return result;
}

json::value describe_bots(description& in, peers::core_service& core,
                          const std::vector<peers::routed_bot>& bots) {
    std::map<std::string, bot_state> states = bot_states(core);
    json::value result(rapidjson::kArrayType);
    for (const peers::routed_bot& bot : bots) {
        if (peers::core_name(bot.core_address) != core.peer().name()) {
            continue;
        }
        const bot_state& state = states[bot.uuid];
        json::value one(rapidjson::kObjectType);
        json::set(one, "uuid", bot.uuid, in.memory());
        json::set(one, "rate", json::value(state.rate), in.memory());
        json::set(one, "count", json::value(state.count), in.memory());
        json::set(one, "absent", json::value(state.absent), in.memory());
        result.PushBack(one, in.memory());
    }
    return result;
}

json::value describe_core(description& in, peers::core_service& core,
                          const std::vector<peers::routed_bot>& bots) {
    json::value result = in.of_peer(core.peer());
    json::set(result, "name", command_name(core.peer().name()), in.memory());
    json::value interfaces(rapidjson::kArrayType);
    for (const std::string& name : core.interfaces()) {
        interfaces.PushBack(json::make_string(name, in.memory()), in.memory());
    }
    json::set(result, "interfaces", std::move(interfaces), in.memory());
    json::set(result, "engines", in.of_engines(core.running_engines()), in.memory());
    json::set(result, "bots", describe_bots(in, core, bots), in.memory());
    return result;
}

json::value describe_server(description& in, const stage& on) {
    const peers::rest_server& server = on.lab.server();
    const bool has_ended = on.daemon != nullptr && !on.daemon->running();
    json::value result = in.of_peer(server);
    json::set(result, "attached", has_ended ? "" : server.attached_zorvin(), in.memory());
    json::set(result, "port", json::value(server.port()), in.memory());
    json::set(result, "queued", json::value(static_cast<std::uint64_t>(server.queued())),
              in.memory());
    return result;
}

json::value copy_schema(const char* name, json::allocator& memory) {
    json::value result;
    result.CopyFrom(*json::find(contract::all_schemas(), name), memory);
    return result;
}

} // namespace

std::string describe_facts(const stage& on) {
    description result;
    json::set(result.root(), "mode", "live", result.memory());
    json::set(result.root(), "daemon", json::value(on.daemon != nullptr), result.memory());
    json::value bots(rapidjson::kArrayType);
    for (const peers::routed_bot& one : peers::bots_of(on.lab.options())) {
        json::value bot(rapidjson::kObjectType);
        json::set(bot, "uuid", one.uuid, result.memory());
        bots.PushBack(bot, result.memory());
    }
    json::set(result.root(), "bots", std::move(bots), result.memory());
    json::value wrong(rapidjson::kArrayType);
    for (const peers::wrong_answer_row& one : peers::wrong_answers()) {
        json::value row(rapidjson::kObjectType);
        json::set(row, "name", one.name, result.memory());
        json::set(row, "peers", one.peers, result.memory());
        json::set(row, "meaning", one.meaning, result.memory());
        wrong.PushBack(row, result.memory());
    }
    json::set(result.root(), "wrong", std::move(wrong), result.memory());
    json::value schemas(rapidjson::kObjectType);
    for (const char* const name : {"command.json", "common.json"}) {
        json::set(schemas, name, copy_schema(name, result.memory()), result.memory());
    }
    json::set(result.root(), "schemas", std::move(schemas), result.memory());
    return json::write(result.root());
}

std::string describe_peers(const stage& on) {
    description result;
    if (on.daemon != nullptr) {
        json::set(result.root(), "daemon_runs", json::value(on.daemon->running()), result.memory());
    }
    if (on.lab.has_server()) {
        json::set(result.root(), "server", describe_server(result, on), result.memory());
    }
    const std::vector<peers::routed_bot> bots = peers::bots_of(on.lab.options());
    json::value cores(rapidjson::kArrayType);
    double loss = on.lab.options().loss;
    for (std::size_t index = 0; index < on.lab.core_count(); ++index) {
        cores.PushBack(describe_core(result, on.lab.core(index), bots), result.memory());
        loss = on.lab.core(index).peer().faults().loss;
    }
    json::set(result.root(), "cores", std::move(cores), result.memory());
    if (peers::fusion_daemon* const fusion = on.lab.fusion()) {
        json::value described = result.of_peer(fusion->peer());
        json::set(described, "engines", result.of_engines(fusion->running_engines()),
                  result.memory());
        json::set(result.root(), "fusion", std::move(described), result.memory());
        loss = fusion->peer().faults().loss;
    }
    json::set(result.root(), "loss", json::value(loss), result.memory());
    return json::write(result.root());
}

} // namespace csi_lab
