/// Whether the REST server's port accepts connections.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

/// Connects as the daemon does, but sends no request: a poll would take a command from the queue.
/// Both texts are as configured. Blocks for at most 5 s.
void check_server_port(const std::string& server, const std::string& port, report& findings);

} // namespace csi_doctor
