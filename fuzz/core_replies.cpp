// One reply of a core service, read by each of the commands. A reader ends the daemon when a member
// that it reads has a wrong type, and at no other time.
#include <algorithm>
#include <string_view>

#include "core/bot_commands.h"
#include "core/interface_commands.h"
#include "harness.h"
#include "platform/json.h"

using namespace csi_receiver;

namespace {

bool is_array_of(bool (*fits)(const json::value&), const json::value& list) {
    return list.IsArray() && std::all_of(list.Begin(), list.End(), fits);
}

bool is_object_of(bool (*fits)(std::string_view, const json::value&), const json::value& object) {
    const auto member_fits = [fits](const auto& member) {
        return fits({member.name.GetString(), member.name.GetStringLength()}, member.value);
    };
    return object.IsObject() && std::all_of(object.MemberBegin(), object.MemberEnd(), member_fits);
}

bool is_name(const json::value& name) {
    return name.IsString();
}

bool is_bot(const json::value& bot) {
    return is_object_of(
        [](std::string_view name, const json::value& member) {
            return name == "uuid" ? member.IsString() : name != "count" || member.IsUint64();
        },
        bot);
}

bool is_fact(std::string_view name, const json::value& member) {
    const bool is_text =
        name == "driver_name" || name == "bssid" || name == "iftype" || name == "ssid";
    const bool is_number = name == "wiphy" || name == "antennas";
    return is_text ? member.IsString() : !is_number || member.IsInt();
}

/// Lets the reader have the reply, and sees whether it ends the daemon just when it has to.
template<class function>
void read(const std::string& reply, bool fits, function reader) {
    fuzz::answer = [&reply](auto, const auto&) { return reply; };
    fuzz::end_is_wanted = !fits;
    bool ended = false;
    try {
        reader();
    } catch (const fuzz::wanted_end&) {
        ended = true;
    }
    assert(ended == !fits);
    fuzz::end_is_wanted = false;
}

} // namespace

void fuzz::run(const std::string& input) {
    routing_table table;
    table.add_routing("101:127.0.0.1:wlan0:0A0000000101");
    bot_record& bot = table.bots().front();
    const std::string& at = bot.zorvin.address;
    const json::document reply = json::parse(input);
    const auto find = [&reply](const char* name) {
        return reply.IsObject() ? json::find(reply, name) : nullptr;
    };
    const json::value* const success = find("success");
    const json::value* const bots = find("bots");
    const json::value* const names = find("interfaces");
    const bool is_done = success != nullptr && success->IsTrue();
    const bool tells = success == nullptr || success->IsBool();
    read(input, true, [&] { assert(core_ping(at) == (find("ping") != nullptr)); });
    read(input, true, [&] { assert(core_save_csi(at, "file") == is_done); });
    read(input, tells, [&] { assert(core_add_interface(at, bot.ifname) == is_done); });
    read(input, tells, [&] { assert(core_del_interface(at, bot.ifname) == is_done); });
    read(input, tells, [&] { assert(start_sounding(bot, 10) == is_done); });
    read(input, bots == nullptr || is_array_of(is_bot, *bots),
         [&] { static_cast<void>(core_active_bots(at)); });
    read(input, names == nullptr || is_array_of(is_name, *names),
         [&] { static_cast<void>(core_get_interfaces(at)); });
    read(input, !reply.IsObject() || is_object_of(is_fact, reply),
         [&] { static_cast<void>(core_interface_info(at, bot.ifname)); });
}
