// One reply of a core service, passed to each command that reads replies. A command must end the
// daemon if a member that it reads has the wrong type, and must not otherwise.
#include "core/bot_commands.h"
#include "core/interface_commands.h"
#include "harness.h"
#include "platform/json.h"

using namespace csi_receiver;

namespace {

/// Runs the command on the reply. It must end the daemon unless the reply is valid for it.
template<class function>
void expect(const std::string& reply, function command) {
    fuzz::answer = [&reply](auto, const std::string& request) {
        fuzz::end_expected = !fuzz::is_valid_reply(request, reply);
        return reply;
    };
    try {
        command();
    } catch (const fuzz::daemon_end&) {
    }
    assert(!fuzz::end_expected);
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
    const bool succeeded = success != nullptr && success->IsTrue();
    expect(input, [&] { assert(core_ping(address) == (find("ping") != nullptr)); });
    expect(input, [&] { assert(core_save_csi(address, "file") == succeeded); });
    expect(input, [&] { assert(core_add_interface(address, bot.ifname) == succeeded); });
    expect(input, [&] { assert(core_del_interface(address, bot.ifname) == succeeded); });
    expect(input, [&] { assert(start_sounding(bot, 10) == succeeded); });
    expect(input, [&] { static_cast<void>(core_active_bots(address)); });
    expect(input, [&] { static_cast<void>(core_get_interfaces(address)); });
    expect(input, [&] { static_cast<void>(core_interface_info(address, bot.ifname)); });
}
