#include "soak/watch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <string>

namespace csi_soak {
namespace {

constexpr std::size_t fewest_samples = 40;

// The main thread; the C library's own for timers; one that carries out a look of the scan, and
// those in passing that find it still at work.
constexpr std::size_t most_threads = 6;
// Streams, signals, log file, HTTP connection and its helpers, a request of either thread.
constexpr std::size_t most_descriptors = 16;

// A POST costs a node of libcurl's header list: 80 bytes where a pointer has 64 bits.
constexpr double most_bytes_a_post = 200;
// What the C library takes once and keeps, when by chance more is held at a time than ever before.
// It comes in the first minutes, so a short run sees some of it.
constexpr double most_bytes_once = 128 * 1024;
constexpr double fewest_posts = 200;

/// The slope of the straight line that fits the points best.
double slope(const std::vector<std::array<double, 2>>& points) {
    std::array<double, 2> mean = {0, 0};
    for (const auto& [x, y] : points) {
        mean[0] += x / static_cast<double>(points.size());
        mean[1] += y / static_cast<double>(points.size());
    }
    double covariance = 0;
    double variance = 0;
    for (const auto& [x, y] : points) {
        covariance += (x - mean[0]) * (y - mean[1]);
        variance += (x - mean[0]) * (x - mean[0]);
    }
    return variance > 0 ? covariance / variance : 0;
}

std::string one_decimal(double number) {
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

} // namespace

bool soak_watch::step(const soak_daemon& daemon, std::size_t posts) {
    const soak_clock::time_point now = soak_clock::now();
    if (now < due_) {
        return false;
    }
    due_ = now + period_;
    const soak_daemon::resources seen = daemon.look();
    if (seen.anonymous > 0) { // Nothing is seen of a process that has ended.
        samples_.push_back({static_cast<double>(posts), static_cast<double>(seen.anonymous),
                            seen.descriptors, seen.threads});
    }
    return true;
}

soak_watch::range soak_watch::range_of(member what, std::size_t begin, std::size_t end) const {
    range result = {samples_[begin].*what, samples_[begin].*what};
    for (std::size_t index = begin; index < end; ++index) {
        result.least = std::min(result.least, samples_[index].*what);
        result.most = std::max(result.most, samples_[index].*what);
    }
    return result;
}

void soak_watch::judge() {
    if (samples_.size() < fewest_samples) {
        report_.violation("the soak is long enough", std::to_string(samples_.size()) + " samples");
        return;
    }
    judge_level("descriptors", &sample::descriptors, most_descriptors);
    judge_level("threads", &sample::threads, most_threads);
    judge_memory();
}

/// What is held for long shows in the least of a third of the run: all else comes and goes.
void soak_watch::judge_level(const char* name, member what, std::size_t limit) {
    const std::size_t third = samples_.size() / 3;
    const range first = range_of(what, 0, third);
    const range last = range_of(what, 2 * third, samples_.size());
    const range all = range_of(what, 0, samples_.size());
    const std::string check = std::string(name) + " stay level";
    const std::string seen = "least " + std::to_string(first.least) + " in the first third, " +
                             std::to_string(last.least) + " in the last; most " +
                             std::to_string(all.most) + " of " + std::to_string(limit);
    report_.violation_unless(last.least <= first.least + 1 && all.most <= limit, check, seen);
    report_.checked(check, seen);
    report_.figure(std::string(name) + ", least to most",
                   std::to_string(all.least) + " to " + std::to_string(all.most));
}

void soak_watch::judge_memory() {
    std::vector<std::array<double, 2>> points;
    for (std::size_t index = samples_.size() / 2; index < samples_.size(); ++index) {
        points.push_back({samples_[index].posts, samples_[index].bytes});
    }
    const double posts = points.back()[0] - points.front()[0];
    const double bytes = slope(points);
    const double limit = most_bytes_a_post + most_bytes_once / std::max(posts, fewest_posts);
    const std::string seen = one_decimal(bytes) + " bytes a POST over the last " +
                             std::to_string(static_cast<long>(posts)) + " POSTs, bound " +
                             one_decimal(limit);
    const char* const check = "memory grows by the header lists alone";
    report_.violation_unless(posts >= fewest_posts && bytes <= limit, check, seen);
    report_.checked(check, seen);
    report_.figure("bytes a POST, second half", one_decimal(bytes));
    report_.figure("anonymous memory, first and last look",
                   one_decimal(samples_.front().bytes / 1024) + " KiB, " +
                       one_decimal(samples_.back().bytes / 1024) + " KiB");
}

} // namespace csi_soak
