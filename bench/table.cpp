#include "bench/table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <functional>

namespace csi_bench {
namespace {

struct figure {
    double median;
    double spread; // interquartile range in percent of the median
};

/// At least one value.
figure summarise(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto quartile = [&values](std::size_t number) { // interpolates between two values
        const std::size_t quarters = (values.size() - 1) * number;
        const double below = values[quarters / 4];
        const double above = values[(quarters + 3) / 4];
        return below + (above - below) * static_cast<double>(quarters % 4) / 4;
    };
    return {quartile(2), (quartile(3) - quartile(1)) / quartile(2) * 100};
}

std::string with_decimals(double value, int decimals) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return text.data();
}

/// Nanoseconds in the unit that suits the value, other units as they are.
std::string text_of(double value, const std::string& unit) {
    const bool is_time = unit == "ns";
    const double scale = !is_time || value < 1e3 ? 1 : value < 1e6 ? 1e3 : 1e6;
    const std::string time_unit = scale > 1e3 ? "ms " : scale > 1 ? "us " : "ns ";
    const double scaled = value / scale;
    return with_decimals(scaled, scaled < 100 ? 2 : 0) + " " + (is_time ? time_unit : unit);
}

std::string text_of(budget allowed, const std::string& unit) {
    if (allowed.plus > 0) {
        return "+ " + with_decimals(allowed.plus, 0) + " " + unit;
    }
    return allowed.times > 0 ? with_decimals(allowed.times, 2) : "-";
}

bool meets(double ours, double floor, double quotient, budget allowed) {
    if (allowed.plus > 0) {
        return ours <= floor + allowed.plus;
    }
    return allowed.times <= 0 || quotient <= allowed.times;
}

std::vector<double> quotients_of(const std::vector<double>& ours,
                                 const std::vector<double>& floor) {
    const std::size_t count = std::min(ours.size(), floor.size());
    std::vector<double> result(count);
    std::transform(ours.begin(), ours.begin() + static_cast<std::ptrdiff_t>(count), floor.begin(),
                   result.begin(), std::divides<>());
    return result;
}

} // namespace

void print_header(const std::string& title) {
    std::printf("\n%s\n\n", title.c_str());
    std::printf("| %-37s | %11s |  ± | %11s |  ± | quotient |     budget | verdict |\n", "", "ours",
                "floor");
    std::printf("|---------------------------------------|------------:|---:|------------:|---:|"
                "---------:|-----------:|---------|\n");
}

bool print_row(const std::string& what, const char* unit, const std::vector<double>& ours,
               const std::vector<double>& floor, budget allowed) {
    const figure our = summarise(ours);
    const figure least = summarise(floor);
    const double quotient = summarise(quotients_of(ours, floor)).median;
    const bool is_met = meets(our.median, least.median, quotient, allowed);
    const bool is_limited = allowed.plus > 0 || allowed.times > 0;
    std::printf("| %-37s | %11s | %2.0f | %11s | %2.0f | %8.2f | %10s | %-7s |\n", what.c_str(),
                text_of(our.median, unit).c_str(), our.spread, text_of(least.median, unit).c_str(),
                least.spread, quotient, text_of(allowed, unit).c_str(),
                !is_limited ? "-"
                : is_met    ? "met"
                            : "MISSED");
    std::fflush(stdout);
    return is_met;
}

} // namespace csi_bench
