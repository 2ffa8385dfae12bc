// One reply of a core service, read by each of the commands. The first one that ends the daemon
// ends the input; as they read different members, the others are reached by other inputs.
#include "core/bot_commands.h"
#include "core/interface_commands.h"
#include "harness.h"
#include "platform/json.h"

using namespace csi_receiver;

void fuzz::run(const std::string& input) {
    routing_table table;
    table.add_routing("101:127.0.0.1:wlan0:0A0000000101");
    bot_record& bot = table.bots().front();
    const std::string& at = bot.zorvin.address;
    const json::document reply = json::parse(input);
    const auto has = [&reply](auto... names) {
        return reply.IsObject() && (... || (json::find(reply, names) != nullptr));
    };
    answer = [&input](auto, const auto&) { return input; };
    assert(core_ping(at) == has("ping"));
    end_is_wanted = has("success") && !json::find(reply, "success")->IsBool();
    assert(core_add_interface(at, bot.ifname) == start_sounding(bot, 10));
    assert(!end_is_wanted); // where an answer is read in depth, an end is only possible
    end_is_wanted = has("bots");
    static_cast<void>(core_active_bots(at));
    end_is_wanted = has("interfaces");
    static_cast<void>(core_get_interfaces(at));
    end_is_wanted = has("wiphy", "antennas", "driver_name", "bssid", "iftype", "ssid");
    static_cast<void>(core_interface_info(at, bot.ifname));
    end_is_wanted = false;
}
