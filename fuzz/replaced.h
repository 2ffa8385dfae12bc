/// Included before the two source files of the daemon that define a function which harness.cpp
/// replaces: the exchange with a peer, and the end of the process after a failed JSON assertion.
/// Renames these definitions. Calls keep the real names, because they are in the headers below,
/// which are read before the renaming.
#pragma once

// Configures the JSON library, so it must come before the library's own headers.
// clang-format off
#include "platform/json.h"
// clang-format on

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "core/requests.h"

#define ask ask_over_udp
#define assertion_failed end_the_process
