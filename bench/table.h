/// The table that sets figures beside their floor and budget.
#pragma once

#include <string>
#include <vector>

namespace csi_bench {

/// Allows the floor so many times, or with so much on top. Both 0: there is no budget.
struct budget {
    double times = 0;
    double plus = 0;
};

void print_head(const std::string& title);

/// A line of the table from repeated measurements, as many of ours as of the floor: the medians
/// with the spread between their quartiles in percent, the median of the quotients of each
/// repetition, the budget and whether it is met. Times are in ns.
void print_row(const std::string& what, const char* unit, const std::vector<double>& ours,
               const std::vector<double>& floor, budget allowed);

} // namespace csi_bench
