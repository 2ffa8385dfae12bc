/// One scripted conversation of the peers with a daemon that has a fault in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "faults/cases.h"
#include "faults/daemon.h"

namespace csi_faults {

/// What happened, for the verdict.
struct observation {
    bool fired = false;           // the call to fail was made
    std::string waited_for;       // what did not happen in time; empty: everything did
    bool ended_by_itself = false; // before SIGTERM
    bool deaf = false;            // did not end after SIGTERM
    int status = 0;               // as waitpid returns it, unless deaf
    std::string output;           // on standard output
    unsigned lost = 0;            // commands without a reply
    unsigned doubled = 0;         // replies beyond the first
    std::size_t descriptors = 0;  // at the end of the conversation, with nothing under way
    double calls_per_second = 0;  // system calls
    double cpu_seconds = 0;
    double seconds = 0;
};

/// A fault that lasts may keep the conversation from going on: then SIGTERM comes after a few
/// seconds. `quiet_descriptors` is how many the daemon has without a fault; 0: not known.
[[nodiscard]] observation converse(const daemon_files& files,
                                   const std::optional<fault_case>& fault,
                                   std::size_t quiet_descriptors);

} // namespace csi_faults
