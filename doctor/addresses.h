/// IP addresses at which none of the daemon's peers can be.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "doctor/findings.h"

namespace csi_doctor {

/// Why the daemon cannot talk to a core service at the address.
struct address_fault {
    finding_code code;
    const char* kind;   // "is not an IPv4 address"
    const char* effect; // on the daemon's requests
    const char* remedy;
};

[[nodiscard]] std::optional<address_fault> find_core_address_fault(const std::string& address);

/// The block reserved for documentation that the IPv4 or IPv6 address is in: "192.0.2.0/24". Empty
/// when there is none.
[[nodiscard]] std::string_view documentation_block(const std::string& address);

/// Whether it is the broadcast address of a network of this machine: an IPv4 address to which a
/// socket connects only if it may broadcast.
[[nodiscard]] bool is_local_broadcast(const std::string& address);

} // namespace csi_doctor
