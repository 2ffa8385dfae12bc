#include "core/bot_commands.h"

#include <string_view>

#include "core/core_request.h"
#include "core/requests.h"

namespace csi_receiver {

std::vector<std::string> core_active_bots(const std::string& address) {
    const json::document request = make_request("active_bots");
    const json::document reply = core_request(address, request);
    const reading_of_reply reading(address, request, reply);
    const json::value* bots = reply.IsObject() ? json::find(reply, "bots") : nullptr;
    std::vector<std::string> uuids;
    if (bots == nullptr) {
        return uuids;
    }
    for (const json::value& bot : bots->GetArray()) {
        std::string uuid;
        std::uint64_t count = 0;
        for (const auto& member : bot.GetObject()) {
            const std::string_view name = json::text_of(member.name);
            if (name == "uuid") {
                uuid = json::text_of(member.value);
            } else if (name == "count") {
                count = member.value.GetUint64();
            }
        }
        if (!uuid.empty() && count != 0) {
            uuids.push_back(uuid);
        }
    }
    return uuids;
}

bool core_sounding(const zorvin_entry& zorvin, const bot_record& bot, std::uint32_t rate,
                   bool quiet) {
    json::document request = make_request("sounding");
    json::allocator& memory = request.GetAllocator();
    json::set(request, "ifname", bot.ifname, memory);
    json::set(request, "uuid", bot.uuid, memory);
    json::set(request, "hwaddr", bot.hwaddr, memory);
    json::set(request, "quiet", json::value(quiet), memory);
    json::set(request, "rate", json::value(rate), memory);
    return succeeds(zorvin.address, request);
}

bool start_sounding(bot_record& bot, std::uint32_t rate) {
    bot.sounding = true;
    return core_sounding(bot.zorvin, bot, rate, false);
}

bool stop_sounding(bot_record& bot) {
    bot.sounding = false;
    return core_sounding(bot.zorvin, bot, 0, false);
}

} // namespace csi_receiver
