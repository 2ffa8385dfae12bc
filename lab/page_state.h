/// What the page shows of the installation, as JSON.
#pragma once

#include <string>

#include "lab/commands.h"
#include "peers/installation.h"

namespace csi_lab {

/// What does not change: the Bots, the kinds of wrong answers, the schemas of the commands.
[[nodiscard]] std::string describe_facts(const stage& on);

/// What each peer is doing and how it misbehaves.
[[nodiscard]] std::string describe_peers(const stage& on);

} // namespace csi_lab
