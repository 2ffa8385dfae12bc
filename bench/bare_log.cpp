#include "bench/bare_log.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>

namespace csi_bench {

std::string format_log_line(const std::string& text) {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 40> prefix{};
    const int length =
        std::snprintf(prefix.data(), prefix.size(), "[%d-%d-%d_%d:%d:%d] ", utc.tm_year + 1900,
                      utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    std::string line;
    line.reserve(static_cast<std::size_t>(length) + text.size() + 1);
    line.append(prefix.data(), static_cast<std::size_t>(length)).append(text) += '\n';
    return line;
}

} // namespace csi_bench
