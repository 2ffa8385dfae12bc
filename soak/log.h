/// Reads the daemon's log file as it grows, across its rotations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

#include "soak/report.h"

namespace csi_soak {

/// For one thread.
class soak_log {
public:
    /// Above what the daemon promises for a log file: what may come between two looks at its size.
    static constexpr std::uintmax_t largest_file = (2U << 20U) + (64U << 10U);
    static constexpr int rotated_files = 3;

    struct counts {
        std::size_t bytes = 0;
        std::size_t lines = 0;
        std::size_t failures = 0;  ///< Lines "request to ... failed".
        std::size_t rotations = 0; ///< Lines "log rotated".
        std::size_t scans = 0;     ///< Reported ones.
        std::size_t stops = 0;     ///< Requests to stop a Bot that no core service answered.
        soak_clock::duration longest_scan{0};
        std::uintmax_t largest = 0; ///< Of all files seen, in bytes.
    };

    /// `path` need not exist yet; the daemon's folder holds nothing else whose name begins so.
    soak_log(std::string path, soak_report& report);

    /// Takes what was written since the last time, and looks at the files' sizes.
    void read();

    [[nodiscard]] const counts& count() const { return counts_; }
    /// Whether a scan that will be reported is on its way.
    [[nodiscard]] bool scanning() const { return scan_since_.has_value(); }

private:
    [[nodiscard]] std::string rotated(int number) const;
    [[nodiscard]] std::optional<int> place() const;
    bool open(const std::string& path);
    bool go_on();
    void take_lines();
    void take(const std::string& line);
    void look_at_sizes();

    const std::string path_;
    soak_report& report_;
    std::ifstream file_;
    std::uintmax_t inode_ = 0; ///< Of the open file; 0: none was opened yet.
    std::string rest_;         ///< The beginning of a line.
    std::string first_added_;  ///< The Bot that a scan begins with.
    std::optional<soak_clock::time_point> scan_since_;
    counts counts_;
};

} // namespace csi_soak
