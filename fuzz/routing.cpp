// The value of "routing" in the configuration.
#include "client/routing.h"

#include <algorithm>
#include <map>

#include "harness.h"

void fuzz::run(const std::string& input) {
    csi_receiver::routing_table table;
    table.add_routing(input);
    std::map<std::string, const csi_receiver::zorvin_entry*> zorvins;
    for (const csi_receiver::zorvin_entry& entry : table.zorvins()) {
        assert(zorvins.emplace(entry.address, &entry).second);
    }
    for (const csi_receiver::bot_record& bot : table.bots()) {
        assert(zorvins[bot.zorvin.address] == &bot.zorvin);
        const std::vector<std::string>& interfaces = bot.zorvin.interfaces;
        assert(std::count(interfaces.begin(), interfaces.end(), bot.ifname) == 1);
        assert(bot.hwaddr.size() == 17 && bot.hwaddr[2] == ':' && bot.hwaddr[14] == ':');
        assert(!bot.uuid.empty() && bot.uuid.compare(0, 2, "0x") != 0);
        assert(table.find_bot_by_uuid(bot.uuid)->uuid == bot.uuid);
    }
}
