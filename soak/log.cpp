#include "soak/log.h"

#include <algorithm>
#include <array>
#include <utility>

#include <sys/stat.h>

namespace csi_soak {
namespace {

constexpr const char* check = "the log stays small";

struct stat status_of(const std::string& path) {
    struct stat result = {};
    stat(path.c_str(), &result); // An absent file stays all zero.
    return result;
}

bool has(const std::string& line, const char* text) {
    return line.find(text) != std::string::npos;
}

} // namespace

soak_log::soak_log(std::string path, soak_report& report)
    : path_(std::move(path))
    , report_(report) {}

std::string soak_log::rotated(int number) const {
    return number == 0 ? path_ : path_ + "." + std::to_string(number);
}

void soak_log::read() {
    if (inode_ == 0 && !open(path_)) {
        return;
    }
    do {
        take_lines();
    } while (go_on());
    look_at_sizes();
}

bool soak_log::open(const std::string& path) {
    std::ifstream next(path);
    const std::uintmax_t inode = status_of(path).st_ino;
    if (!next || inode == 0) {
        return false;
    }
    file_ = std::move(next);
    inode_ = inode;
    return true;
}

/// How often the open file was renamed; none: it is gone.
std::optional<int> soak_log::place() const {
    for (int number = 0; number <= rotated_files; ++number) {
        if (status_of(rotated(number)).st_ino == inode_) {
            return number;
        }
    }
    return std::nullopt;
}

/// Turns to the file after the open one when that was rotated away. False when it was not.
bool soak_log::go_on() {
    const std::optional<int> before = place();
    if (before == 0) {
        return false;
    }
    take_lines(); // What came between the last look and the renaming.
    if (!before.has_value()) {
        report_.violation("the log is read without gaps", "a whole file passed unseen");
        return open(path_);
    }
    std::ifstream next(rotated(*before - 1));
    const std::uintmax_t inode = status_of(rotated(*before - 1)).st_ino;
    if (!next || inode == 0 || place() != before) {
        return false; // Another rotation is under way: the next look will find it done.
    }
    file_ = std::move(next);
    inode_ = inode;
    return true;
}

void soak_log::take_lines() {
    std::array<char, 65536> text = {};
    do {
        file_.clear();
        file_.read(text.data(), text.size());
        rest_.append(text.data(), static_cast<std::size_t>(file_.gcount()));
        counts_.bytes += static_cast<std::size_t>(file_.gcount());
    } while (file_.gcount() > 0);
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = rest_.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        take(rest_.substr(begin, end - begin));
    }
    rest_.erase(0, begin);
}

void soak_log::take(const std::string& line) {
    ++counts_.lines;
    // Commands stand in the log, too: the text must follow the time.
    const std::size_t prefix = std::min(line.find("] "), line.size());
    const std::string text = line.substr(std::min(prefix + 2, line.size()));
    if (text.rfind("request to ", 0) == 0 && has(text, " failed: ")) {
        ++counts_.failures;
    } else if (has(text, ": failed to send ") && has(text, R"("rate":0)")) {
        ++counts_.stops;
    } else if (text == "log rotated") {
        ++counts_.rotations;
    } else if (text.rfind("adding ", 0) == 0 && (first_added_.empty() || text == first_added_)) {
        first_added_ = text;
        scan_since_ = soak_clock::now();
    } else if (text == "Scan complete" && scan_since_) {
        ++counts_.scans;
        counts_.longest_scan = std::max(counts_.longest_scan, soak_clock::now() - *scan_since_);
        scan_since_.reset();
    }
}

void soak_log::look_at_sizes() {
    for (int number = 0; number <= rotated_files; ++number) {
        const auto size = static_cast<std::uintmax_t>(status_of(rotated(number)).st_size);
        counts_.largest = std::max(counts_.largest, size);
        report_.violation_unless(size <= largest_file, check,
                                 rotated(number) + " has " + std::to_string(size) + " bytes");
    }
    report_.violation_unless(status_of(rotated(rotated_files + 1)).st_ino == 0, check,
                             "there is a file " + rotated(rotated_files + 1));
}

} // namespace csi_soak
