#include "bench/table.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <functional>

namespace csi_bench {
namespace {

struct figure {
    double median;
    double spread; // in percent
};

/// Of at least one value.
figure summarise(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto quartile = [&values](std::size_t number) { // often between two of the values
        const std::size_t quarters = (values.size() - 1) * number;
        const double below = values[quarters / 4];
        const double above = values[(quarters + 3) / 4];
        return below + (above - below) * static_cast<double>(quarters % 4) / 4;
    };
    return {quartile(2), (quartile(3) - quartile(1)) / quartile(2) * 100};
}

/// Nanoseconds, which come in all sizes, get a unit that suits them.
std::string text_of(double value, const std::string& unit) {
    const bool is_time = unit == "ns";
    const double scale = !is_time || value < 1e3 ? 1 : value < 1e6 ? 1e3 : 1e6;
    const char* const shown = scale > 1e3 ? "ms" : scale > 1 ? "us" : unit.c_str();
    char text[32] = {};
    std::snprintf(text, sizeof text, "%.*f %-3s", value / scale < 100 ? 2 : 0, value / scale,
                  shown);
    return text;
}

} // namespace

void print_head(const std::string& title) {
    std::printf("\n%s\n\n", title.c_str());
    std::printf("| %-37s | %11s |  ± | %11s |  ± | quotient |     budget | verdict |\n", "", "ours",
                "floor");
    std::printf("|---------------------------------------|------------:|---:|------------:|---:|"
                "---------:|-----------:|---------|\n");
}

void print_row(const std::string& what, const char* unit, const std::vector<double>& ours,
               const std::vector<double>& floor, budget allowed) {
    std::vector<double> quotients(std::min(ours.size(), floor.size()));
    std::transform(ours.begin(), ours.begin() + static_cast<std::ptrdiff_t>(quotients.size()),
                   floor.begin(), quotients.begin(), std::divides<>());
    const figure our = summarise(ours);
    const figure least = summarise(floor);
    const double quotient = summarise(quotients).median;
    const bool adds = allowed.plus > 0;
    const bool met = adds ? our.median <= least.median + allowed.plus : quotient <= allowed.times;
    char text[32] = "-";
    if (adds) {
        std::snprintf(text, sizeof text, "+ %.0f %s", allowed.plus, unit);
    } else if (allowed.times > 0) {
        std::snprintf(text, sizeof text, "%.2f", allowed.times);
    }
    const char* const verdict = text[0] == '-' ? "-" : met ? "met" : "MISSED";
    std::printf("| %-37s | %11s | %2.0f | %11s | %2.0f | %8.2f | %10s | %-7s |\n", what.c_str(),
                text_of(our.median, unit).c_str(), our.spread, text_of(least.median, unit).c_str(),
                least.spread, quotient, text, verdict);
    std::fflush(stdout);
}

} // namespace csi_bench
