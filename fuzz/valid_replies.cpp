// Which replies of a core service have the right types for the command that reads them.
#include <algorithm>
#include <string_view>

#include "harness.h"
#include "platform/json.h"

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

} // namespace

bool fuzz::is_valid_reply(const std::string& request, const std::string& reply) {
    const json::document asked = json::parse(request);
    const json::document parsed = json::parse(reply);
    const std::string_view command = json::find_string(asked, "cmd").value_or("ping");
    if (!parsed.IsObject() || command == "ping" || command == "save_csi") {
        return true;
    }
    if (command == "info") {
        return is_object_of(is_interface_fact, parsed);
    }
    if (command == "active_bots") {
        const json::value* const bots = json::find(parsed, "bots");
        return bots == nullptr || is_array_of(is_bot, *bots);
    }
    if (command == "get_interfaces") {
        const json::value* const names = json::find(parsed, "interfaces");
        return names == nullptr || is_array_of(is_name, *names);
    }
    const json::value* const success = json::find(parsed, "success");
    return success == nullptr || success->IsBool();
}
