#include "peers/engines.h"

#include <algorithm>
#include <string_view>

namespace peers {
namespace {

void add_bot(const json::value& from, std::vector<std::string>& to) {
    if (from.IsString()) {
        to.emplace_back(from.GetString(), from.GetStringLength());
    } else if (from.IsObject()) {
        if (const auto uuid = json::find_string(from, "uuid")) {
            to.emplace_back(*uuid);
        }
    }
}

std::vector<std::string> named_bots(const json::value& command) {
    std::vector<std::string> result;
    if (const json::value* bot = json::find(command, "bot")) {
        add_bot(*bot, result);
    }
    const json::value* bots = json::find(command, "bots");
    if (bots != nullptr && bots->IsArray()) {
        for (const json::value& bot : bots->GetArray()) {
            add_bot(bot, result);
        }
    }
    return result;
}

} // namespace

engines::engines(std::set<std::string> types)
    : types_(std::move(types)) {}

void engines::answer(json::document& command) {
    const std::lock_guard<std::mutex> lock(mutex_);
    json::allocator& memory = command.GetAllocator();
    const std::string type(json::find_string(command, "engineType").value_or(""));
    const std::string reason = carry_out(type, command);
    json::set(command, "success", json::value(reason.empty()), memory);
    if (!reason.empty()) {
        json::set(command, "reason", reason, memory);
        return;
    }
    const bool runs = any_runs(type, named_bots(command));
    json::set(command, "state", runs ? "running" : "stopped", memory);
}

std::vector<engines::run> engines::running() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<run> result;
    for (const auto& [type, bot] : running_) {
        result.push_back({type, bot});
    }
    return result;
}

std::string engines::carry_out(const std::string& type, const json::value& command) {
    if (types_.count(type) == 0) {
        return "unknown engine type";
    }
    const auto word = json::find_string(command, "cmd");
    if (!word) {
        return "unknown command";
    }
    const std::vector<std::string> bots = named_bots(command);
    if (bots.empty() && (*word == "start" || *word == "stop")) {
        return "no bot";
    }
    for (const std::string& bot : bots) {
        if (*word == "start") {
            running_.emplace(type, bot);
        } else if (*word == "stop") {
            running_.erase({type, bot});
        }
    }
    return {};
}

bool engines::any_runs(const std::string& type, const std::vector<std::string>& of) const {
    return std::any_of(running_.begin(), running_.end(), [&](const key& one) {
        return one.first == type &&
               (of.empty() || std::find(of.begin(), of.end(), one.second) != of.end());
    });
}

std::string refusal(const std::string& reason) {
    json::document answer(rapidjson::kObjectType);
    json::set(answer, "success", json::value(false), answer.GetAllocator());
    json::set(answer, "reason", reason, answer.GetAllocator());
    return json::write(answer);
}

} // namespace peers
