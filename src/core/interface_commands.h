/// Commands with which the daemon checks a core service and takes radio interfaces in hand.
///
/// Each is one core_request to a Zorvin's address and blocks no longer than that; none logs.
/// Replies are read without a test of their types: a core service that answers with a wrong type
/// ends the process on purpose. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/routing.h"

namespace csi_receiver {

/// The radio facts of an interface. What the reply lacks is empty or 0.
struct interface_info {
    std::int32_t wiphy = 0;
    std::int32_t antennas = 0;
    std::string ifname; // as asked
    std::string driver_name;
    std::string bssid;
    std::string iftype; // "ap" for an access point's
    std::string ssid;
};

/// Whether the core service answers.
[[nodiscard]] bool core_ping(const std::string& address);

/// Take an interface under the core service's control, or give it back; true when it says success.
bool core_add_interface(const std::string& address, const std::string& ifname);
bool core_del_interface(const std::string& address, const std::string& ifname);

/// The interfaces under the core service's control; empty on failure.
[[nodiscard]] std::vector<std::string> core_get_interfaces(const std::string& address);

/// All texts but `ifname` are empty on failure.
[[nodiscard]] interface_info core_interface_info(const std::string& address,
                                                 const std::string& ifname);

/// Asks to save the CSI that is captured to the file; true when it says success. The one reply of
/// which any type is taken.
[[nodiscard]] bool core_save_csi(const std::string& address, const std::string& filename);

/// Adds all interfaces of the entry, in order; failures are ignored.
void add_interfaces(const zorvin_entry& zorvin);

} // namespace csi_receiver
