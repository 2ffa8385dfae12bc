#include "soak/resource_monitor.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace csi_soak {
namespace {

constexpr std::size_t min_samples = 40;

// The main thread, the C library's timer thread, one that runs a check of the scan, and some that
// find this check still running and return at once.
constexpr std::size_t max_threads = 6;
// Standard streams, signals, log file, the HTTP connection with libcurl's helpers, and a socket for
// each of the two threads that send requests.
constexpr std::size_t max_descriptors = 16;

// A POST leaves one node of libcurl's header list behind: 80 bytes where pointers have 64 bits.
constexpr double max_bytes_per_post = 200;
// The C library keeps the memory of a short peak in use. New peaks come mostly in the first
// minutes, so a short run shows part of this.
constexpr double max_bytes_kept = 128 * 1024;
constexpr double min_posts = 200;

struct point {
    double x;
    double y;
};

/// The slope of the line of best fit.
double slope(const std::vector<point>& points) {
    point mean{0, 0};
    for (const auto& [x, y] : points) {
        mean.x += x / static_cast<double>(points.size());
        mean.y += y / static_cast<double>(points.size());
    }
    double covariance = 0;
    double variance = 0;
    for (const auto& [x, y] : points) {
        covariance += (x - mean.x) * (y - mean.y);
        variance += (x - mean.x) * (x - mean.x);
    }
    return variance > 0 ? covariance / variance : 0;
}

std::string with_one_decimal(double number) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

} // namespace

bool resource_monitor::sample_if_due(const daemon_process& daemon, std::size_t posts) {
    const steady_clock::time_point now = steady_clock::now();
    if (now < due_) {
        return false;
    }
    due_ = now + period_;
    const daemon_process::resources used = daemon.usage();
    const bool has_exited = used.anonymous == 0;
    if (!has_exited) {
        samples_.push_back({static_cast<double>(posts), static_cast<double>(used.anonymous),
                            used.descriptors, used.threads});
    }
    return true;
}

resource_monitor::range resource_monitor::range_of(resource which, std::size_t begin,
                                                   std::size_t end) const {
    range result{samples_[begin].*which, samples_[begin].*which};
    for (std::size_t index = begin; index < end; ++index) {
        result.min = std::min(result.min, samples_[index].*which);
        result.max = std::max(result.max, samples_[index].*which);
    }
    return result;
}

void resource_monitor::judge() {
    if (samples_.size() < min_samples) {
        report_.fail("the run is long enough", std::to_string(samples_.size()) + " samples");
        return;
    }
    judge_level("descriptors", &sample::descriptors, max_descriptors);
    judge_level("threads", &sample::threads, max_threads);
    judge_memory();
}

/// A leak raises the minimum of a third of the run. What comes and goes does not.
void resource_monitor::judge_level(const char* name, resource which, std::size_t limit) {
    const std::size_t third = samples_.size() / 3;
    const range first = range_of(which, 0, third);
    const range last = range_of(which, 2 * third, samples_.size());
    const range all = range_of(which, 0, samples_.size());
    const std::string check = std::string(name) + " stay level";
    const std::string seen = "minimum " + std::to_string(first.min) + " in the first third, " +
                             std::to_string(last.min) + " in the last; maximum " +
                             std::to_string(all.max) + ", limit " + std::to_string(limit);
    report_.expect(last.min <= first.min + 1 && all.max <= limit, check, seen);
    report_.add_check(check, seen);
    report_.add_figure(std::string(name) + ", minimum to maximum",
                       std::to_string(all.min) + " to " + std::to_string(all.max));
}

void resource_monitor::judge_memory() {
    std::vector<point> second_half;
    for (std::size_t index = samples_.size() / 2; index < samples_.size(); ++index) {
        second_half.push_back({samples_[index].posts, samples_[index].bytes});
    }
    const double posts = second_half.back().x - second_half.front().x;
    const double growth = slope(second_half);
    const double limit = max_bytes_per_post + max_bytes_kept / std::max(posts, min_posts);
    const std::string seen = with_one_decimal(growth) + " bytes per POST over the last " +
                             std::to_string(static_cast<long>(posts)) + " POSTs, limit " +
                             with_one_decimal(limit);
    const char* const check = "memory grows only by the header lists";
    report_.expect(posts >= min_posts && growth <= limit, check, seen);
    report_.add_check(check, seen);
    report_.add_figure("bytes per POST, second half", with_one_decimal(growth));
    report_.add_figure("anonymous memory, first and last sample",
                       with_one_decimal(samples_.front().bytes / 1024) + " KiB, " +
                           with_one_decimal(samples_.back().bytes / 1024) + " KiB");
}

} // namespace csi_soak
