/// A stranger who sprays forged replies at the daemon's UDP ports.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "peers/sockets.h"
#include "soak/random_schedule.h"
#include "soak/report.h"

namespace csi_soak {

/// Comes and goes. He sends from an address of his own to every port that the system may have given
/// the daemon. No answer of the daemon's may change through him. For one thread.
class stranger {
public:
    explicit stranger(reporter& report, std::uint32_t seed);
    ~stranger();
    stranger(const stranger&) = delete;
    stranger& operator=(const stranger&) = delete;

    /// Comes and goes when the time has come. Call it often.
    void step(steady_clock::time_point now);
    void leave();
    [[nodiscard]] std::size_t visits() const { return visits_; }
    [[nodiscard]] std::size_t datagrams() const { return datagrams_; }

private:
    void spray();

    reporter& report_;
    random_schedule schedule_;
    const peers::descriptor socket_;
    steady_clock::time_point due_;
    std::size_t visits_ = 0;
    std::atomic<std::size_t> datagrams_{0};
    std::atomic<bool> leaving_{false};
    std::thread thread_;
};

} // namespace csi_soak
