/// Executes "csi_lab replay".
#pragma once

#include "lab/options.h"

namespace csi_lab {

/// Plays the peers of the recording until the daemon has made all recorded requests, stops making
/// any, or a signal arrives. Shows the differences and returns the exit status. Throws input_error.
[[nodiscard]] int replay_recording(const arguments& given);

} // namespace csi_lab
