/// Executes "csi_lab --against": tests a peer with the real daemon.
#pragma once

#include <string>
#include <string_view>

#include "lab/options.h"

namespace csi_lab {

/// Plays the other peers, starts the daemon, relays between it and the peer under test, walks the
/// daemon through the protocol, and judges what the peer sent. Returns the exit status.
[[nodiscard]] int test_peer(const arguments& given);

/// The script that walks the daemon through the protocol to test this kind of peer. A server sends
/// the commands itself: it is watched for a time.
[[nodiscard]] std::string walk_for(std::string_view peer, unsigned seconds);

} // namespace csi_lab
