#include "core/interface_commands.h"

#include <string_view>

#include "core/core_request.h"
#include "core/requests.h"

namespace csi_receiver {
namespace {

json::document request_about(std::string_view command, const std::string& ifname) {
    json::document request = make_request(command);
    json::set(request, "ifname", ifname, request.GetAllocator());
    return request;
}

std::string* text_field(interface_info& info, std::string_view name) {
    return name == "iftype"        ? &info.iftype
           : name == "bssid"       ? &info.bssid
           : name == "ssid"        ? &info.ssid
           : name == "driver_name" ? &info.driver_name
                                   : nullptr;
}

std::int32_t* number_field(interface_info& info, std::string_view name) {
    return name == "antennas" ? &info.antennas : name == "wiphy" ? &info.wiphy : nullptr;
}

} // namespace

bool core_ping(const std::string& address) {
    json::document request(rapidjson::kObjectType);
    json::set(request, "ping", json::value(), request.GetAllocator());
    const json::document reply = core_request(address, request);
    return reply.IsObject() && json::find(reply, "ping") != nullptr;
}

bool core_add_interface(const std::string& address, const std::string& ifname) {
    return succeeds(address, request_about("add_interface", ifname));
}

bool core_del_interface(const std::string& address, const std::string& ifname) {
    return succeeds(address, request_about("del_interface", ifname));
}

std::vector<std::string> core_get_interfaces(const std::string& address) {
    const json::document request = make_request("get_interfaces");
    const json::document reply = core_request(address, request);
    const reading_of_reply reading(address, request, reply);
    const json::value* interfaces = reply.IsObject() ? json::find(reply, "interfaces") : nullptr;
    std::vector<std::string> names;
    if (interfaces != nullptr) {
        for (const json::value& name : interfaces->GetArray()) {
            names.emplace_back(json::text_of(name));
        }
    }
    return names;
}

interface_info core_interface_info(const std::string& address, const std::string& ifname) {
    interface_info info;
    info.ifname = ifname;
    const json::document request = request_about("info", ifname);
    const json::document reply = core_request(address, request);
    if (!reply.IsObject()) {
        return info;
    }
    const reading_of_reply reading(address, request, reply);
    for (const auto& member : reply.GetObject()) {
        const std::string_view name = json::text_of(member.name);
        if (std::int32_t* number = number_field(info, name)) {
            *number = member.value.GetInt();
        } else if (std::string* text = text_field(info, name)) {
            *text = json::text_of(member.value);
        }
    }
    return info;
}

bool core_save_csi(const std::string& address, const std::string& filename) {
    json::document request = make_request("save_csi");
    json::set(request, "enable", json::value(true), request.GetAllocator());
    json::set(request, "filename", filename, request.GetAllocator());
    const json::document reply = core_request(address, request);
    const json::value* success = reply.IsObject() ? json::find(reply, "success") : nullptr;
    return success != nullptr && success->IsTrue();
}

void add_interfaces(const zorvin_entry& zorvin, const std::function<bool()>& stop) {
    for (const std::string& ifname : zorvin.interfaces) {
        if (stop && stop()) {
            return;
        }
        core_add_interface(zorvin.address, ifname);
    }
}

} // namespace csi_receiver
