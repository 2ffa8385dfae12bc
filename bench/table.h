/// The table that compares figures with their floor and their budget.
#pragma once

#include <string>
#include <vector>

namespace csi_bench {

/// What a figure may be at most: so many times the floor, or the floor and so much more. Without
/// either, anything.
struct budget {
    double times = 0;
    double plus = 0;
};

void print_header(const std::string& title);

/// Prints one line from repeated measurements, of which each of ours goes with the one of the floor
/// at the same index: both medians with their interquartile ranges in percent, the median of the
/// quotients, the budget, and whether it is met, which is also returned. Times are in ns.
bool print_row(const std::string& what, const char* unit, const std::vector<double>& ours,
               const std::vector<double>& floor, budget allowed);

} // namespace csi_bench
