/// What the lab reports about its peers, one line per peer.
#pragma once

#include <string>
#include <vector>

#include "peers/installation.h"

namespace csi_lab {

/// Where each peer listens.
[[nodiscard]] std::vector<std::string> describe_addresses(peers::installation& lab);

/// What each peer is doing: attached, queued, sounding, heard, running.
[[nodiscard]] std::vector<std::string> describe_state(peers::installation& lab);

} // namespace csi_lab
