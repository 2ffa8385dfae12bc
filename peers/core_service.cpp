#include "peers/core_service.h"

#include <chrono>
#include <optional>
#include <string_view>

#include "core/core_request.h"
#include "peers/replies.h"

namespace peers {
namespace {

/// Longest "active_bots" reply: the daemon reads no more than 4096 bytes.
constexpr std::size_t max_reply_bytes = 4000;

/// The text of the member; empty if it is missing or not a string.
std::string text_member(const json::value& request, std::string_view name) {
    return std::string(json::find_string(request, name).value_or(""));
}

json::value bot_object(const radio::heard_bot& bot, json::allocator& memory) {
    json::value result(rapidjson::kObjectType);
    json::set(result, "uuid", bot.uuid, memory);
    json::set(result, "count", json::value(bot.count), memory);
    return result;
}

} // namespace

const std::map<std::string, core_service::command> core_service::commands = {
    {"add_interface", &core_service::add_interface},
    {"del_interface", &core_service::del_interface},
    {"get_interfaces", &core_service::get_interfaces},
    {"info", &core_service::info},
    {"active_bots", &core_service::active_bots},
    {"sounding", &core_service::sounding},
    {"save_csi", &core_service::save_csi},
};

std::string core_name(const std::string& address) {
    return "core " + address;
}

core_service::core_service(journal& record, const std::string& address,
                           const core_service_options& options)
    : default_facts_(options.facts)
    , engines_({"motion2", "breathing2", "guard"})
    , radio_(options.times)
    , peer_(record, {core_name(address), address, csi_receiver::core_service_port, options.seed},
            [this](const std::string& request) { return answer(request); }) {}

void core_service::set_present(const std::string& uuid, bool present) {
    const std::lock_guard<std::mutex> lock(mutex_);
    radio_.set_present(uuid, present, std::chrono::steady_clock::now());
}

void core_service::set_facts(const std::string& ifname, interface_facts facts) {
    const std::lock_guard<std::mutex> lock(mutex_);
    facts_[ifname] = std::move(facts);
}

std::vector<std::string> core_service::interfaces() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return radio_.interfaces();
}

std::vector<radio::sounded_bot> core_service::sounded() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return radio_.sounded();
}

std::vector<radio::heard_bot> core_service::heard() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return radio_.heard(std::chrono::steady_clock::now());
}

std::vector<std::string> core_service::absent() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return radio_.absent();
}

std::string core_service::answer(const std::string& request) {
    json::document parsed = json::parse(request);
    if (!parsed.IsObject()) {
        return failure_reply("no object");
    }
    if (json::find(parsed, "engineType") != nullptr) {
        engines_.handle(parsed);
        return json::write(parsed);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    return run_command(parsed);
}

std::string core_service::run_command(const json::value& request) {
    if (json::find(request, "ping") != nullptr) {
        return R"({"ping":"pong"})";
    }
    const auto found = commands.find(text_member(request, "cmd"));
    if (found == commands.end()) {
        return failure_reply("unknown command");
    }
    return (this->*found->second)(request);
}

std::string core_service::add_interface(const json::value& request) {
    const std::string name = text_member(request, "ifname");
    if (name.empty()) {
        return failure_reply("no ifname");
    }
    radio_.add_interface(name);
    return success_reply();
}

std::string core_service::del_interface(const json::value& request) {
    const bool deleted = radio_.del_interface(text_member(request, "ifname"));
    return deleted ? success_reply() : failure_reply("unknown interface");
}

std::string core_service::get_interfaces(const json::value& /*request*/) {
    json::document reply(rapidjson::kObjectType);
    json::allocator& memory = reply.GetAllocator();
    json::value names(rapidjson::kArrayType);
    for (const std::string& name : radio_.interfaces()) {
        names.PushBack(json::make_string(name, memory), memory);
    }
    json::set(reply, "interfaces", std::move(names), memory);
    return json::write(reply);
}

std::string core_service::info(const json::value& request) {
    // Also for an interface that was not added: the request to add it may have been lost.
    const auto found = facts_.find(text_member(request, "ifname"));
    const interface_facts& facts = found == facts_.end() ? default_facts_ : found->second;
    json::document reply(rapidjson::kObjectType);
    json::allocator& memory = reply.GetAllocator();
    json::set(reply, "success", json::value(true), memory);
    json::set(reply, "wiphy", json::value(facts.wiphy), memory);
    json::set(reply, "antennas", json::value(facts.antennas), memory);
    json::set(reply, "driver_name", facts.driver_name, memory);
    json::set(reply, "bssid", facts.bssid, memory);
    json::set(reply, "iftype", facts.iftype, memory);
    json::set(reply, "ssid", facts.ssid, memory);
    return json::write(reply);
}

/// If not all Bots fit into one reply, each reply continues where the one before it stopped.
std::string core_service::active_bots(const json::value& /*request*/) {
    const auto heard = radio_.heard(std::chrono::steady_clock::now());
    json::document reply(rapidjson::kObjectType);
    json::allocator& memory = reply.GetAllocator();
    json::value bots(rapidjson::kArrayType);
    std::size_t size = std::string_view(R"({"bots":[]})").size();
    const std::size_t first = heard.empty() ? 0 : next_bot_ % heard.size();
    std::size_t count = 0;
    for (; count < heard.size(); ++count) {
        json::value bot = bot_object(heard[(first + count) % heard.size()], memory);
        size += json::write(bot).size() + 1;
        if (size > max_reply_bytes) {
            break;
        }
        bots.PushBack(bot, memory);
    }
    next_bot_ = count < heard.size() ? first + count : 0;
    json::set(reply, "bots", std::move(bots), memory);
    return json::write(reply);
}

std::string core_service::sounding(const json::value& request) {
    const std::string uuid = text_member(request, "uuid");
    const json::value* rate = json::find(request, "rate");
    const bool complete = !uuid.empty() && !text_member(request, "ifname").empty() &&
                          !text_member(request, "hwaddr").empty() && rate != nullptr &&
                          rate->IsUint();
    if (!complete) {
        return failure_reply("incomplete sounding");
    }
    radio_.sound(uuid, rate->GetUint(), std::chrono::steady_clock::now());
    return success_reply();
}

std::string core_service::save_csi(const json::value& /*request*/) {
    return success_reply();
}

} // namespace peers
