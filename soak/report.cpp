#include "soak/report.h"

#include <array>
#include <cstdio>

namespace csi_soak {
namespace {

constexpr std::size_t told_at_once = 5;
constexpr std::size_t longest_told = 600;

std::string shortened(const std::string& text) {
    return text.size() <= longest_told ? text : text.substr(0, longest_told) + " ...";
}

} // namespace

std::string in_seconds(soak_clock::duration what) {
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.2f s", std::chrono::duration<double>(what).count());
    return text.data();
}

void soak_report::say(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    print(line);
}

void soak_report::print(const std::string& line) const {
    const std::chrono::duration<double> since = soak_clock::now() - begin_;
    std::printf("[%7.1f s] %s\n", since.count(), line.c_str());
    std::fflush(stdout);
}

void soak_report::violation(const std::string& check, const std::string& what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (++violations_[check] <= told_at_once) {
        print("FAIL " + check + ": " + shortened(what));
    }
}

void soak_report::violation_unless(bool holds, const std::string& check, const std::string& what) {
    if (!holds) {
        violation(check, what);
    }
}

void soak_report::figure(std::string name, std::string value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    figures_.emplace_back(std::move(name), std::move(value));
}

void soak_report::checked(std::string check, std::string outcome) {
    const std::lock_guard<std::mutex> lock(mutex_);
    violations_.emplace(check, 0);
    checks_.emplace_back(std::move(check), std::move(outcome));
}

bool soak_report::conclude() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::printf("\nFigures\n");
    for (const auto& [name, value] : figures_) {
        std::printf("  %-44s %s\n", name.c_str(), value.c_str());
    }
    std::printf("\nChecks\n");
    for (const auto& [name, outcome] : checks_) {
        std::printf("  %-4s  %s: %s\n", violations_[name] == 0 ? "ok" : "FAIL", name.c_str(),
                    outcome.c_str());
    }
    std::size_t count = 0;
    for (const auto& [name, times] : violations_) {
        count += times;
    }
    std::printf("\n%s\n",
                count == 0 ? "ok" : ("FAIL: " + std::to_string(count) + " violations").c_str());
    std::fflush(stdout);
    return count == 0;
}

} // namespace csi_soak
