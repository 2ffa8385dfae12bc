/// Commands to a core service that concern radio interfaces, and the ping.
///
/// Each makes one core_request to a Zorvin's address, which may block for 4 s; none logs anything
/// itself. A reply with a member of the wrong type ends the process on purpose. Any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/routing.h"

namespace csi_receiver {

/// What the core service reports of an interface. Members that the reply lacks are empty or 0.
struct interface_info {
    std::int32_t wiphy = 0;
    std::int32_t antennas = 0;
    std::string ifname; // as asked
    std::string driver_name;
    std::string bssid;
    std::string iftype; // "ap": an access point
    std::string ssid;
};

/// Whether the core service answers.
[[nodiscard]] bool core_ping(const std::string& address);

/// Put an interface under the core service's control, or take it back; true when it reports
/// success.
bool core_add_interface(const std::string& address, const std::string& ifname);
bool core_del_interface(const std::string& address, const std::string& ifname);

/// The interfaces under the core service's control; empty on failure.
[[nodiscard]] std::vector<std::string> core_get_interfaces(const std::string& address);

/// The radio facts of an interface; all texts but `ifname` are empty on failure.
[[nodiscard]] interface_info core_interface_info(const std::string& address,
                                                 const std::string& ifname);

/// Asks the core service to save captured CSI to the file; true when it reports success. A wrong
/// type in this reply counts as failure.
[[nodiscard]] bool core_save_csi(const std::string& address, const std::string& filename);

/// Adds the interfaces of the entry, in order; failures are ignored. `stop`, if any, is asked
/// before each one: true leaves out the rest.
void add_interfaces(const zorvin_entry& zorvin, const std::function<bool()>& stop = {});

} // namespace csi_receiver
