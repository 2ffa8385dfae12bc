/// One Bot's item in the routing: why the daemon drops it, or cannot reach the Bot.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

constexpr const char* item_form = "write ID:ADDRESS:INTERFACE:HWADDR, such as "
                                  "101:127.0.0.1:wlan0:020000000065";

/// For an item that the daemon drops.
void explain_dropped_item(const std::string& item, const place& where, report& findings);

/// For an item that the daemon accepts: four fields, the last one of 12 characters.
void check_accepted_item(const std::string& item, const place& where, report& findings);

/// Warns of the sample configuration's Bots. For an item that the daemon accepts.
void check_sample_bot(const std::string& item, const place& where, report& findings);

} // namespace csi_doctor
