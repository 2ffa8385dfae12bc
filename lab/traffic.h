/// The latest lines that were shown or would be, for expectations to match.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <regex.h>

#include "peers/sockets.h"

namespace csi_lab {

/// A piece of text, or between slashes an extended regular expression of POSIX.
class pattern {
public:
    /// Throws std::runtime_error that says what is wrong with the regular expression.
    explicit pattern(const std::string& written);

    [[nodiscard]] bool matches(const std::string& line) const;
    [[nodiscard]] const std::string& written() const { return written_; }

private:
    std::string written_;
    std::shared_ptr<const regex_t> expression_; // none for a piece of text
};

/// Lines are numbered from 0 on. May be called from any thread.
class traffic {
public:
    void add(std::string line);

    /// The number of the first match among the lines from this one on.
    [[nodiscard]] std::optional<std::size_t> find(const pattern& wanted, std::size_t first) const;
    /// At most `count` of the latest lines.
    [[nodiscard]] std::vector<std::string> latest(std::size_t count) const;

    /// Awake when lines came since it was reset.
    [[nodiscard]] peers::waker& added() { return added_; }

private:
    mutable std::mutex mutex_; // guards the lines and their count
    std::deque<std::string> lines_;
    std::size_t dropped_ = 0; // lines before the first that is kept
    peers::waker added_;
};

} // namespace csi_lab
