#include "client/routing.h"

#include <algorithm>
#include <cstddef>

#include "daemon/log.h"
#include "platform/utilities.h"

namespace csi_receiver {
namespace {

constexpr std::size_t field_count = 4;
constexpr std::size_t hwaddr_digits = 12;

/// "A0B1C2D3E4F5" as "a0:b1:c2:d3:e4:f5".
std::string format_hwaddr(const std::string& digits) {
    std::string text;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        text += at == 0 ? "" : ":";
        text += digits.substr(at, 2);
    }
    return to_lower(text);
}

} // namespace

void routing_table::add_routing(const std::string& routing) {
    for (const std::string& item : split(routing, ',')) {
        const std::vector<std::string> fields = split(item, ':');
        if (fields.size() == field_count && fields[3].size() == hwaddr_digits) {
            add_item(fields);
        }
    }
}

void routing_table::add_item(const std::vector<std::string>& fields) {
    std::string uuid = fields[0];
    hex_id_to_decimal(uuid);
    const std::string& address = fields[1];
    const std::string& ifname = fields[2];
    const std::string hwaddr = format_hwaddr(fields[3]);
    log_prefix() << "Add bot uuid " << uuid << " at zorvin " << address << " on interface "
                 << ifname << " hwaddr " << hwaddr;

    zorvin_entry& zorvin = zorvin_at(address);
    std::vector<std::string>& interfaces = zorvin.interfaces;
    if (std::find(interfaces.begin(), interfaces.end(), ifname) == interfaces.end()) {
        interfaces.push_back(ifname);
    }
    bot_record& bot = bots_.emplace_back(hwaddr, uuid, ifname, zorvin);
    zorvin.bots.push_back(&bot);
    bot_by_uuid_.emplace(bot.uuid, bots_.size() - 1);
}

zorvin_entry& routing_table::zorvin_at(const std::string& address) {
    const auto known = zorvin_by_address_.find(address);
    if (known != zorvin_by_address_.end()) {
        return *known->second;
    }
    zorvin_entry& added = zorvins_.emplace_back(address);
    zorvin_by_address_.emplace(added.address, &added);
    return added;
}

routing_table::bots_type::iterator routing_table::find_bot_by_uuid(const std::string& uuid) {
    const auto known = bot_by_uuid_.find(uuid);
    if (known == bot_by_uuid_.end()) {
        return bots_.end();
    }
    return bots_.begin() + static_cast<std::ptrdiff_t>(known->second);
}

routing_table::bots_type::iterator routing_table::find_bot_by_hwaddr(const std::string& hwaddr) {
    return std::find_if(bots_.begin(), bots_.end(),
                        [&hwaddr](const bot_record& bot) { return bot.hwaddr == hwaddr; });
}

} // namespace csi_receiver
