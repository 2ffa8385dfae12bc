/// What the peers have seen of the daemon so far.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "peers/journal.h"

namespace csi_faults {

/// Any thread may call any function.
class transcript {
public:
    /// How often each was sent.
    struct counts {
        unsigned attaches = 0;
        unsigned status_messages = 0;
        unsigned scan_reports = 0;
        std::map<unsigned, unsigned> handed_out; // by the command's number
        std::map<unsigned, unsigned> replies;
    };
    using predicate = std::function<bool(const counts&)>;

    explicit transcript(peers::journal& journal);

    [[nodiscard]] counts count() const;
    /// Waits until the predicate holds. False when the time is up.
    [[nodiscard]] bool wait_for(const predicate& holds, std::chrono::milliseconds timeout) const;

private:
    void add(const peers::message& message);

    mutable std::mutex mutex_;
    mutable std::condition_variable added_;
    counts counts_;
};

} // namespace csi_faults
