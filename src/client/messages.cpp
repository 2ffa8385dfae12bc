#include "client/messages.h"

#include <utility>

#include "client/identifiers.h"
#include "platform/utilities.h"

namespace csi_receiver {
namespace {

std::string write_message(json::document& message) {
    identifiers_to_numbers(message);
    return json::write(message);
}

} // namespace

json::value build_bot_info(const bot_list& found, json::allocator& memory) {
    json::value info(rapidjson::kArrayType);
    for (const bot_record* const bot : found) {
        json::value entry(rapidjson::kObjectType);
        json::set(entry, "bot", bot->uuid, memory);
        json::set(entry, "hwaddr", bot->hwaddr, memory);
        json::set(entry, "chains", json::value(1), memory); // always 1: kept for compatibility
        info.PushBack(entry, memory);
    }
    return info;
}

std::string build_attach(const zorvin_identity& identity, const sensing_interface& sensing,
                         const bot_list& found, const std::string& version, bool fusion) {
    json::document message(rapidjson::kObjectType);
    json::allocator& memory = message.GetAllocator();
    json::set(message, "type", "zorvin", memory);
    // This driver goes by another's name: kept for compatibility.
    const bool is_renamed = sensing.driver_name == "qcawifi";
    json::set(message, "driver", is_renamed ? "ath10k" : sensing.driver_name, memory);
    if (identity.is_v3) {
        json::set(message, "request", "zorvinAttach", memory);
    }
    json::set(message, "zorvin", identity.uuid, memory);
    json::set(message, "ssid", sensing.ssid, memory);
    json::set(message, "join", json::value(true), memory);
    json::set(message, "chains", json::value(sensing.chains), memory);
    json::set(message, "bot_info", build_bot_info(found, memory), memory);
    json::set(message, "version", version, memory);
    json::value support(rapidjson::kObjectType);
    for (const char* const engine : {"motion2", "breathing2", "guard"}) {
        json::set(support, engine, json::value(1U), memory);
    }
    if (fusion) {
        json::set(support, "cpd", json::value(1U), memory);
        json::set(support, "softSecurity", json::value(1U), memory);
    }
    json::set(message, "localCalculationSupport", std::move(support), memory);
    return write_message(message);
}

std::string build_status(const zorvin_identity& identity, const bot_list& found) {
    json::document message(rapidjson::kObjectType);
    json::allocator& memory = message.GetAllocator();
    if (identity.is_v3) {
        json::set(message, "request", "zorvinMsg", memory);
        json::set(message, "zorvin", identity.uuid, memory);
    }
    json::set(message, "bot_info", build_bot_info(found, memory), memory);
    return write_message(message);
}

std::string build_scan_report(const zorvin_identity& identity,
                              const std::vector<std::string>& found) {
    json::document report(rapidjson::kObjectType);
    json::allocator& memory = report.GetAllocator();
    json::set(report, "cmd", "scan", memory);
    json::set(report, "zorvin", identity.uuid, memory);
    if (identity.is_v3) {
        json::set(report, "request", "zorvinMsg", memory);
    } else {
        json::set(report, "uuid", identity.uuid, memory);
    }
    json::set(report, "success", json::value(true), memory);
    json::set(report, "reason", "complete", memory);
    json::value uuids(rapidjson::kArrayType);
    for (const std::string& uuid : found) {
        // Numbers from the start: the writing pass converts nothing under this name.
        uuids.PushBack(json::value(parse_decimal(uuid)), memory);
    }
    json::set(report, "found", std::move(uuids), memory);
    return write_message(report);
}

} // namespace csi_receiver
