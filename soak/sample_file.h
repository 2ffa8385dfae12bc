/// A table of what the daemon used in the course of a soak, for drawing.
#pragma once

#include <chrono>
#include <cstddef>
#include <fstream>
#include <string>

#include "soak/daemon_process.h"
#include "soak/report.h"

namespace csi_soak {

/// A CSV file with one line per second. For one thread.
class sample_file {
public:
    /// Writes nothing if the path is empty. Throws std::runtime_error when the file cannot be
    /// written.
    explicit sample_file(const std::string& path);

    [[nodiscard]] bool is_due(steady_clock::time_point now) const {
        return file_.is_open() && now >= due_;
    }
    /// `replies`: how many so far. The faults are those in progress; empty for none.
    void add(steady_clock::time_point now, const daemon_process::resources& used,
             std::size_t replies, const std::string& server_fault, const std::string& peer_fault);

private:
    std::ofstream file_;
    const steady_clock::time_point start_ = steady_clock::now();
    steady_clock::time_point due_ = start_;
};

} // namespace csi_soak
