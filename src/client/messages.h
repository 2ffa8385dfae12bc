/// The messages that the client sends unasked, from given values.
///
/// Pure functions: they change nothing and send nothing. All texts are compact JSON with the
/// identifiers as numbers. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/routing.h"
#include "platform/json.h"

namespace csi_receiver {

/// This access point towards the REST server, and the version of the API that it speaks.
struct zorvin_identity {
    std::string uuid; // decimal text
    bool is_v3 = false;
};

/// The interface that does the sensing, as its core service reported it.
struct sensing_interface {
    std::string driver_name;
    std::string ssid;
    std::int32_t chains = 0;
};

/// Bots of the routing table, in its order.
using bot_list = std::vector<const bot_record*>;

/// The "bot_info" array; its strings are copied into `memory`.
[[nodiscard]] json::value build_bot_info(const bot_list& found, json::allocator& memory);

/// The attach message. `fusion` adds the engines of the fusion daemon to those that are offered.
[[nodiscard]] std::string build_attach(const zorvin_identity& identity,
                                       const sensing_interface& sensing, const bot_list& found,
                                       const std::string& version, bool fusion);

/// The status message: which Bots were found.
[[nodiscard]] std::string build_status(const zorvin_identity& identity, const bot_list& found);

/// The report of a scan that was asked for; `found` holds uuids.
[[nodiscard]] std::string build_scan_report(const zorvin_identity& identity,
                                            const std::vector<std::string>& found);

} // namespace csi_receiver
