#include "soak/report.h"

#include <array>
#include <cstdio>

namespace csi_soak {
namespace {

constexpr std::size_t max_printed_failures = 5;
constexpr std::size_t max_printed_length = 600;

std::string shortened(const std::string& text) {
    return text.size() <= max_printed_length ? text : text.substr(0, max_printed_length) + " ...";
}

} // namespace

std::string in_seconds(steady_clock::duration time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", std::chrono::duration<double>(time).count());
    return text.data();
}

void reporter::print(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    print_locked(line);
}

void reporter::print_locked(const std::string& line) const {
    const std::chrono::duration<double> elapsed = steady_clock::now() - start_;
    std::printf("[%7.1f s] %s\n", elapsed.count(), line.c_str());
    std::fflush(stdout);
}

void reporter::fail(const std::string& check, const std::string& detail) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (++failures_[check] <= max_printed_failures) {
        print_locked("FAIL " + check + ": " + shortened(detail));
    }
}

void reporter::expect(bool holds, const std::string& check, const std::string& detail) {
    if (!holds) {
        fail(check, detail);
    }
}

void reporter::add_figure(std::string name, std::string value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    figures_.emplace_back(std::move(name), std::move(value));
}

void reporter::add_check(std::string check, std::string seen) {
    const std::lock_guard<std::mutex> lock(mutex_);
    checks_.emplace_back(std::move(check), std::move(seen));
}

bool reporter::conclude() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::printf("\nFigures\n");
    for (const auto& [name, value] : figures_) {
        std::printf("  %-44s %s\n", name.c_str(), value.c_str());
    }
    std::printf("\nChecks\n");
    for (const auto& [check, seen] : checks_) {
        std::printf("  %-4s  %s: %s\n", failures_.count(check) == 0 ? "ok" : "FAIL", check.c_str(),
                    seen.c_str());
    }
    std::size_t total = 0;
    for (const auto& [check, count] : failures_) {
        total += count;
    }
    std::printf("\n%s\n",
                total == 0 ? "ok" : ("FAIL: " + std::to_string(total) + " failures").c_str());
    std::fflush(stdout);
    return total == 0;
}

} // namespace csi_soak
