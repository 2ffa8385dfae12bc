/// What counts as surviving a fault. The only place that decides it.
#pragma once

#include <optional>
#include <string>

#include "faults/cases.h"
#include "faults/conversation.h"

namespace csi_faults {

struct verdict {
    std::string name; // "survived", "ended", "not reached" or "violation"
    std::string detail;
};

/// `usual` is what happens without a fault.
[[nodiscard]] verdict judge(const fault_case& fault, const observation& seen,
                            const observation& usual);

/// Whether a conversation without a fault went as it must. Returns what is wrong, or nothing.
[[nodiscard]] std::optional<std::string> judge_usual(const observation& seen);

} // namespace csi_faults
