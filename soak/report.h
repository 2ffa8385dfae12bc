/// What a soak prints: its progress, then the figures and the outcome of each check.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace csi_soak {

using std::chrono::steady_clock;

/// "1.25 s"
[[nodiscard]] std::string in_seconds(steady_clock::duration time);

/// Any thread may call any function.
class reporter {
public:
    /// Prints the line after the time since construction.
    void print(const std::string& line);

    /// Counts a failure of the check. The first few failures of each check are printed at once.
    void fail(const std::string& check, const std::string& detail);
    void expect(bool holds, const std::string& check, const std::string& detail);

    /// Adds a line to the figures printed at the end.
    void add_figure(std::string name, std::string value);

    /// Lists the check at the end, with a few words on what it saw.
    void add_check(std::string check, std::string seen);

    /// Prints the figures and the checks. True when no check has failed, listed or not.
    [[nodiscard]] bool conclude();

private:
    using rows = std::vector<std::pair<std::string, std::string>>;

    void print_locked(const std::string& line) const;

    const steady_clock::time_point start_ = steady_clock::now();
    std::mutex mutex_;                            // guards all below, and keeps printed lines apart
    std::map<std::string, std::size_t> failures_; // by check
    rows figures_;
    rows checks_;
};

} // namespace csi_soak
