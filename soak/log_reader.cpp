#include "soak/log_reader.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include <sys/stat.h>

namespace csi_soak {
namespace {

/// All zero for a file that does not exist.
struct stat status_of(const std::string& path) {
    struct stat result {};
    stat(path.c_str(), &result);
    return result;
}

bool contains(const std::string& line, const char* text) {
    return line.find(text) != std::string::npos;
}

bool starts_with(const std::string& line, const char* text) {
    return line.rfind(text, 0) == 0;
}

/// The line without the time in front of it.
std::string text_of(const std::string& line) {
    const std::size_t end = line.find("] ");
    return end == std::string::npos ? "" : line.substr(end + 2);
}

/// The time in front of the line; nullopt for lines without one.
std::optional<std::int64_t> time_of(const std::string& line) {
    std::tm time{};
    if (strptime(line.c_str(), "[%Y-%m-%d_%H:%M:%S] ", &time) == nullptr) {
        return std::nullopt;
    }
    return timegm(&time);
}

} // namespace

log_reader::log_reader(std::string path, reporter& report)
    : path_(std::move(path))
    , report_(report) {}

std::string log_reader::path_after(int rotations) const {
    return rotations == 0 ? path_ : path_ + "." + std::to_string(rotations);
}

void log_reader::read() {
    if (inode_ == 0 && !open(path_)) {
        return;
    }
    do {
        read_lines();
    } while (open_next());
    check_sizes();
}

bool log_reader::open(const std::string& path) {
    std::ifstream file(path);
    const std::uintmax_t inode = status_of(path).st_ino;
    if (!file || inode == 0) {
        return false;
    }
    file_ = std::move(file);
    inode_ = inode;
    return true;
}

/// nullopt when the file has been deleted.
std::optional<int> log_reader::rotations_of_open_file() const {
    for (int rotations = 0; rotations <= max_rotated_files; ++rotations) {
        if (status_of(path_after(rotations)).st_ino == inode_) {
            return rotations;
        }
    }
    return std::nullopt;
}

/// Opens the file that followed the open one, if that has been rotated.
bool log_reader::open_next() {
    const std::optional<int> rotations = rotations_of_open_file();
    if (rotations.value_or(1) == 0) {
        return false;
    }
    read_lines(); // written before the rotation, but after the last read
    if (!rotations) {
        report_.fail("the log is read without gaps", "a whole file was missed");
        return open(path_);
    }
    const std::string path = path_after(*rotations - 1);
    std::ifstream file(path);
    const std::uintmax_t inode = status_of(path).st_ino;
    if (!file || inode == 0 || rotations_of_open_file() != rotations) {
        return false; // another rotation is in progress: try again at the next read
    }
    file_ = std::move(file);
    inode_ = inode;
    return true;
}

void log_reader::read_lines() {
    std::array<char, 65536> buffer{};
    do {
        file_.clear();
        file_.seekg(0, std::ios::cur); // else some C++ libraries remember where the file ended
        file_.read(buffer.data(), buffer.size());
        partial_line_.append(buffer.data(), static_cast<std::size_t>(file_.gcount()));
        counts_.bytes += static_cast<std::size_t>(file_.gcount());
    } while (file_.gcount() > 0);
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = partial_line_.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        count_line(partial_line_.substr(begin, end - begin));
    }
    partial_line_.erase(0, begin);
}

void log_reader::count_line(const std::string& line) {
    ++counts_.lines;
    if (const auto time = time_of(line)) {
        counts_.first_time = counts_.first_time == 0 ? *time : counts_.first_time;
        counts_.backward_steps += *time < counts_.last_time ? 1U : 0U;
        counts_.last_time = *time;
    }
    // The log contains commands, too, so these texts count only right after the time.
    const std::string text = text_of(line);
    if (starts_with(text, "request to ") && contains(text, " failed: ")) {
        ++counts_.failed_requests;
    } else if (contains(text, ": failed to send ") && contains(text, R"("rate":0)")) {
        ++counts_.unanswered_stops;
    } else if (text == "log rotated") {
        ++counts_.rotations;
    } else if (starts_with(text, "adding ") &&
               (first_bot_line_.empty() || text == first_bot_line_)) {
        first_bot_line_ = text;
        scan_start_ = steady_clock::now();
    } else if (text == "Scan complete" && scan_start_) {
        ++counts_.reported_scans;
        counts_.longest_scan = std::max(counts_.longest_scan, steady_clock::now() - *scan_start_);
        scan_start_.reset();
    }
}

void log_reader::check_sizes() {
    const char* const check = "the log stays small";
    for (int rotations = 0; rotations <= max_rotated_files; ++rotations) {
        const std::string path = path_after(rotations);
        const auto size = static_cast<std::uintmax_t>(status_of(path).st_size);
        counts_.largest_file = std::max(counts_.largest_file, size);
        report_.expect(size <= max_file_bytes, check,
                       path + " has " + std::to_string(size) + " bytes");
    }
    const std::string extra = path_after(max_rotated_files + 1);
    report_.expect(status_of(extra).st_ino == 0, check, extra + " exists");
}

} // namespace csi_soak
