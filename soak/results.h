/// The checks and figures that a soak reports at its end.
#pragma once

#include "peers/rest_server.h"
#include "soak/bot_absences.h"
#include "soak/conversation.h"
#include "soak/log_reader.h"
#include "soak/peer_faults.h"
#include "soak/report.h"
#include "soak/server_faults.h"
#include "soak/stranger.h"

namespace csi_soak {

void check_conversation(const conversation_checker& conversation, reporter& report);
void check_log(const log_reader& log, const server_faults& faults, reporter& report);

void add_conversation_figures(const conversation_checker& conversation,
                              const peers::rest_server& server, reporter& report);
void add_fault_figures(const server_faults& server, const peer_faults& peers,
                       const bot_absences& bots, const stranger& visitor, reporter& report);

} // namespace csi_soak
