/// Read ahead of the daemon's two source files that hold a function which the fuzz targets define
/// themselves: the exchange with a peer, and the end after a failed JSON assertion. The daemon's
/// own definitions get other names there. Everything else of these files stays, and so do the
/// calls, which stand in the headers that are read before the names change.
#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "core/requests.h"
#include "platform/json.h"

#define ask ask_over_udp
#define assertion_failed end_the_process
