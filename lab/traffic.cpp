#include "lab/traffic.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace csi_lab {
namespace {

constexpr std::size_t kept_lines = 20'000;

std::shared_ptr<const regex_t> compile(const std::string& text) {
    auto result = std::make_unique<regex_t>();
    const int error = regcomp(result.get(), text.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
        std::array<char, 200> reason{};
        regerror(error, result.get(), reason.data(), reason.size());
        throw std::runtime_error("/" + text + "/: " + reason.data());
    }
    return {result.release(), [](regex_t* expression) {
                regfree(expression);
                delete expression;
            }};
}

} // namespace

pattern::pattern(const std::string& written)
    : written_(written) {
    if (written.size() > 2 && written.front() == '/' && written.back() == '/') {
        expression_ = compile(written.substr(1, written.size() - 2));
    }
}

bool pattern::matches(const std::string& line) const {
    return expression_ ? regexec(expression_.get(), line.c_str(), 0, nullptr, 0) == 0
                       : line.find(written_) != std::string::npos;
}

void traffic::add(std::string line) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(std::move(line));
        if (lines_.size() > kept_lines) {
            lines_.pop_front();
            ++dropped_;
        }
    }
    added_.wake();
}

std::optional<std::size_t> traffic::find(const pattern& wanted, std::size_t first) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (std::size_t index = std::max(first, dropped_) - dropped_; index < lines_.size(); ++index) {
        if (wanted.matches(lines_[index])) {
            return dropped_ + index;
        }
    }
    return std::nullopt;
}

std::vector<std::string> traffic::latest(std::size_t count) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t shown = std::min(count, lines_.size());
    return {std::prev(lines_.end(), static_cast<std::ptrdiff_t>(shown)), lines_.end()};
}

} // namespace csi_lab
