/// One Bot's item in the routing: why the daemon drops it, or cannot reach the Bot.
#pragma once

#include <string>

#include "doctor/findings.h"

namespace csi_doctor {

constexpr const char* item_form = "write ID:ADDRESS:INTERFACE:HWADDR, such as "
                                  "101:127.0.0.1:wlan0:020000000065";

/// For an item that the daemon leaves out.
void explain_dropped_item(const std::string& item, const std::string& where, report& to);

/// For an item with four fields, the last one of 12 characters.
void check_taken_item(const std::string& item, const std::string& where, report& to);

} // namespace csi_doctor
