/// What a soak tells people: lines while it runs, at its end the figures and a verdict a check.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace csi_soak {

using soak_clock = std::chrono::steady_clock;

/// "1.25 s"
[[nodiscard]] std::string in_seconds(soak_clock::duration what);

/// Every function may be called from any thread.
class soak_report {
public:
    /// Prints the line behind the time since the report was made.
    void say(const std::string& line);

    /// The check has failed. The first few of each check are told at once, all are counted.
    void violation(const std::string& check, const std::string& what);
    void violation_unless(bool holds, const std::string& check, const std::string& what);

    /// A line of the final table.
    void figure(std::string name, std::string value);

    /// Names a check that the verdict shall list, and how it came out in words.
    void checked(std::string check, std::string outcome);

    /// Prints table and verdict. True when there was no violation, also of a check not listed.
    [[nodiscard]] bool conclude();

private:
    using rows = std::vector<std::pair<std::string, std::string>>;

    void print(const std::string& line) const;

    const soak_clock::time_point begin_ = soak_clock::now();
    std::mutex mutex_; ///< For all below, and so that lines do not mix.
    std::map<std::string, std::size_t> violations_;
    rows figures_;
    rows checks_;
};

} // namespace csi_soak
