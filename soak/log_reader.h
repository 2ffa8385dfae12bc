/// Reads the daemon's log file as it grows, across rotations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

#include "soak/report.h"

namespace csi_soak {

/// For one thread.
class log_reader {
public:
    /// The daemon's limit, and a margin for what it may write between two checks of the size.
    static constexpr std::uintmax_t max_file_bytes = (2U << 20U) + (64U << 10U);
    static constexpr int max_rotated_files = 3;

    struct counters {
        std::size_t bytes = 0;
        std::size_t lines = 0;
        std::size_t failed_requests = 0; // lines "request to ... failed"
        std::size_t rotations = 0;       // lines "log rotated"
        std::size_t reported_scans = 0;
        std::size_t unanswered_stops = 0; // requests to stop a Bot that no core service answered
        steady_clock::duration longest_scan{0}; // of the reported ones
        std::uintmax_t largest_file = 0;        // in bytes
        std::int64_t first_time = 0;            // seconds since 1970, as written in the first line
        std::int64_t last_time = 0;
        std::size_t backward_steps = 0; // lines that are older than the one before
    };

    /// The file need not exist yet.
    log_reader(std::string path, reporter& report);

    /// Reads what was written since the last call, and checks the sizes of the files.
    void read();

    [[nodiscard]] const counters& counts() const { return counts_; }
    /// Whether a scan is running that will be reported.
    [[nodiscard]] bool scanning() const { return scan_start_.has_value(); }

private:
    [[nodiscard]] std::string path_after(int rotations) const;
    [[nodiscard]] std::optional<int> rotations_of_open_file() const;
    [[nodiscard]] bool open(const std::string& path);
    [[nodiscard]] bool open_next();
    void read_lines();
    void count_line(const std::string& line);
    void check_sizes();

    const std::string path_;
    reporter& report_;
    std::ifstream file_;
    std::uintmax_t inode_ = 0;   // of the open file; 0 before the first
    std::string partial_line_;   // read without its end
    std::string first_bot_line_; // every scan starts with the same Bot
    std::optional<steady_clock::time_point> scan_start_;
    counters counts_;
};

} // namespace csi_soak
