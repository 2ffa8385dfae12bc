// One reply of a core service, passed to each command that reads replies. A command must end the
// daemon if a member that it reads has the wrong type, and must not otherwise.
#include <algorithm>
#include <string_view>

#include "core/bot_commands.h"
#include "core/interface_commands.h"
#include "harness.h"
#include "platform/json.h"

using namespace csi_receiver;

namespace {

bool is_array_of(bool (*is_valid)(const json::value&), const json::value& list) {
    return list.IsArray() && std::all_of(list.Begin(), list.End(), is_valid);
}

bool is_object_of(bool (*is_valid)(std::string_view, const json::value&),
                  const json::value& object) {
    const auto is_valid_member = [is_valid](const auto& member) {
        return is_valid({member.name.GetString(), member.name.GetStringLength()}, member.value);
    };
    return object.IsObject() &&
           std::all_of(object.MemberBegin(), object.MemberEnd(), is_valid_member);
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

bool is_interface_fact(std::string_view name, const json::value& member) {
    const bool is_text =
        name == "driver_name" || name == "bssid" || name == "iftype" || name == "ssid";
    const bool is_number = name == "wiphy" || name == "antennas";
    return is_text ? member.IsString() : !is_number || member.IsInt();
}

/// Runs the command on the reply. It must end the daemon unless the reply is valid for it.
template<class function>
void expect(const std::string& reply, bool is_valid, function command) {
    fuzz::answer = [&reply](auto, const auto&) { return reply; };
    fuzz::end_expected = !is_valid;
    bool ended = false;
    try {
        command();
    } catch (const fuzz::daemon_end&) {
        ended = true;
    }
    assert(ended == !is_valid);
    fuzz::end_expected = false;
}

} // namespace

void fuzz::run(const std::string& input) {
    routing_table table;
    table.add_routing("101:127.0.0.1:wlan0:0A0000000101");
    bot_record& bot = table.bots().front();
    const std::string& address = bot.zorvin.address;
    const json::document reply = json::parse(input);
    const auto find = [&reply](const char* name) {
        return reply.IsObject() ? json::find(reply, name) : nullptr;
    };
    const json::value* const success = find("success");
    const json::value* const bots = find("bots");
    const json::value* const names = find("interfaces");
    const bool succeeded = success != nullptr && success->IsTrue();
    const bool is_valid = success == nullptr || success->IsBool();
    expect(input, true, [&] { assert(core_ping(address) == (find("ping") != nullptr)); });
    expect(input, true, [&] { assert(core_save_csi(address, "file") == succeeded); });
    expect(input, is_valid, [&] { assert(core_add_interface(address, bot.ifname) == succeeded); });
    expect(input, is_valid, [&] { assert(core_del_interface(address, bot.ifname) == succeeded); });
    expect(input, is_valid, [&] { assert(start_sounding(bot, 10) == succeeded); });
    expect(input, bots == nullptr || is_array_of(is_bot, *bots),
           [&] { static_cast<void>(core_active_bots(address)); });
    expect(input, names == nullptr || is_array_of(is_name, *names),
           [&] { static_cast<void>(core_get_interfaces(address)); });
    expect(input, !reply.IsObject() || is_object_of(is_interface_fact, reply),
           [&] { static_cast<void>(core_interface_info(address, bot.ifname)); });
}
