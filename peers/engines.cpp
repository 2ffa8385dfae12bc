#include "peers/engines.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace peers {
namespace {

void add_bot(const json::value& from, std::vector<std::string>& to) {
    if (from.IsString()) {
        to.emplace_back(json::text_of(from));
    } else if (from.IsObject()) {
        if (const auto uuid = json::find_string(from, "uuid")) {
            to.emplace_back(*uuid);
        }
    }
}

std::vector<std::string> bots_in(const json::value& command) {
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

void engines::handle(json::document& command) {
    const std::lock_guard<std::mutex> lock(mutex_);
    json::allocator& memory = command.GetAllocator();
    const std::string type(json::find_string(command, "engineType").value_or(""));
    const std::vector<std::string> bots = bots_in(command);
    const std::string reason = execute(type, command, bots);
    json::set(command, "success", json::value(reason.empty()), memory);
    if (!reason.empty()) {
        json::set(command, "reason", reason, memory);
        return;
    }
    json::set(command, "state", runs(type, bots) ? "running" : "stopped", memory);
}

std::vector<running_engine> engines::running() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<running_engine> result;
    for (const auto& [type, bot] : running_) {
        result.push_back({type, bot});
    }
    return result;
}

std::string engines::execute(const std::string& type, const json::value& command,
                             const std::vector<std::string>& bots) {
    if (types_.count(type) == 0) {
        return "unknown engine type";
    }
    const auto word = json::find_string(command, "cmd");
    if (!word) {
        return "unknown command";
    }
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

bool engines::runs(const std::string& type, const std::vector<std::string>& bots) const {
    return std::any_of(running_.begin(), running_.end(), [&](const type_and_bot& one) {
        return one.first == type &&
               (bots.empty() || std::find(bots.begin(), bots.end(), one.second) != bots.end());
    });
}

} // namespace peers
