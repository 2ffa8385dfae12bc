#include "doctor/log_command.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include <sys/types.h>

#include "doctor/command_line.h"
#include "doctor/log_history.h"
#include "doctor/log_reader.h"
#include "doctor/log_report.h"
#include "doctor/log_timeline.h"
#include "doctor/regular_file.h"
#include "doctor/text.h"

namespace csi_doctor {
namespace {

constexpr int exit_faults = 1;
constexpr int exit_failure = 2;
// The daemon rotates at half of this.
constexpr std::size_t size_limit = 4'194'304; // bytes

struct log_options {
    std::vector<std::string> paths;
    bool json = false;
    bool svg = false;
    bool help = false;
    std::string error;
};

log_options parse(const std::vector<std::string>& arguments) {
    log_options given;
    for (const std::string& argument : arguments) {
        if (argument == "--json") {
            given.json = true;
        } else if (argument == "--svg") {
            given.svg = true;
        } else if (argument == "--help" || argument == "-h") {
            given.help = true;
        } else if (argument.empty() || argument.front() == '-') {
            given.error = "unknown option " + in_quotes(argument);
        } else {
            given.paths.push_back(argument);
        }
    }
    if (given.error.empty() && given.paths.empty() && !given.help) {
        given.error = "no log file given";
    } else if (given.json && given.svg) {
        given.error = "--json and --svg exclude each other";
    }
    return given;
}

/// The path without ".1" and the like, and this number; 0 without one.
std::pair<std::string, int> split_rotation(std::string path) {
    // "./f.1" is of "f", and "/a/./f.1" of "/a/f".
    for (std::size_t at = 0; (at = path.find("/./")) != std::string::npos;) {
        path.erase(at, 2);
    }
    path.erase(0, path.compare(0, 2, "./") == 0 ? 2 : 0);
    const std::size_t dot = path.size() < 2 ? 0 : path.size() - 2;
    const bool rotated =
        dot > 0 && path[dot] == '.' && path[dot + 1] >= '1' && path[dot + 1] <= '9';
    return rotated ? std::pair(path.substr(0, dot), path[dot + 1] - '0') : std::pair(path, 0);
}

/// What keeps the file from being read; empty for nothing.
std::string describe_fault(const regular_file& file) {
    switch (file.outcome) {
    case read_outcome::error:
        return std::strerror(file.error);
    case read_outcome::not_regular:
        return std::string("it is ") +
               (S_ISDIR(file.status.st_mode) ? "a directory" : describe_kind(file.status.st_mode));
    case read_outcome::too_large:
        return "it has 4 MiB or more, which no log of the daemon has";
    case read_outcome::complete:
        break;
    }
    return "";
}

bool is_foreign(const log_file& log) {
    return !log.text.empty() &&
           std::none_of(log.entries.begin(), log.entries.end(), [](const log_entry& entry) {
               return entry.time || entry.known.kind != line_kind::unknown;
           });
}

std::string describe_foreign(const std::string& text) {
    return "no line in it is the daemon's" +
           std::string(text.compare(0, 2, "\x1f\x8b") == 0    ? "; it is compressed by gzip"
                       : text.find('\0') != std::string::npos ? "; it contains NUL bytes"
                                                              : "");
}

/// Reads each file once, even if it is given under several names.
class log_files {
public:
    explicit log_files(std::vector<std::string> missing)
        : historian_(std::move(missing)) {}

    /// False, with a line on standard error, when the file cannot be read.
    [[nodiscard]] bool add(const std::string& path);
    [[nodiscard]] const log_history& history() const { return historian_.history(); }

private:
    [[nodiscard]] std::string read(const std::string& path);

    log_historian historian_;
    std::set<std::pair<dev_t, ino_t>> known_;
};

bool log_files::add(const std::string& path) {
    const std::string fault = read(path);
    if (!fault.empty()) {
        std::cerr << "csi_doctor: cannot read " << in_quotes(path) << ": " << fault << '\n';
    }
    return fault.empty();
}

/// What keeps the file from being read; empty for nothing.
std::string log_files::read(const std::string& path) {
    regular_file file = read_regular_file(path, size_limit);
    std::string fault = describe_fault(file);
    if (!fault.empty() || !known_.emplace(file.status.st_dev, file.status.st_ino).second) {
        return fault;
    }
    log_file log;
    log.path = path;
    log.text = std::move(file.text);
    read_entries(log);
    if (is_foreign(log)) {
        return describe_foreign(log.text);
    }
    historian_.add(log);
    return "";
}

/// Returns the status, or that of a failure.
int print(const std::string& text, int status) {
    std::cout << text << std::flush;
    if (!std::cout) {
        std::cerr << "csi_doctor: cannot write to standard output\n";
        return exit_failure;
    }
    return status;
}

} // namespace

std::vector<std::string> in_order_of_rotation(std::vector<std::string> paths) {
    std::map<std::string, std::size_t> order; // of the logs
    for (const std::string& path : paths) {
        order.emplace(split_rotation(path).first, order.size());
    }
    const auto key = [&order](const std::string& path) {
        const auto [base, number] = split_rotation(path);
        return std::pair(order.at(base), -number);
    };
    std::stable_sort(
        paths.begin(), paths.end(),
        [&key](const std::string& one, const std::string& other) { return key(one) < key(other); });
    return paths;
}

std::vector<std::string> missing_between(const std::vector<std::string>& paths) {
    std::map<std::string, std::set<int>> numbers; // by log
    for (const std::string& path : paths) {
        const auto [base, number] = split_rotation(path);
        numbers[base].insert(number);
    }
    std::vector<std::string> missing;
    for (const auto& [base, given] : numbers) {
        for (int number = *given.begin(); number < *given.rbegin(); ++number) {
            if (given.count(number) == 0) {
                missing.push_back(base + "." + std::to_string(number));
            }
        }
    }
    return missing;
}

int run_log_command(const std::vector<std::string>& arguments) {
    const log_options given = parse(arguments);
    if (!given.error.empty()) {
        std::cerr << "csi_doctor: " << given.error << '\n' << usage;
        return exit_failure;
    }
    if (given.help) {
        return print(std::string(usage) + help + "\n", 0);
    }
    log_files files(missing_between(given.paths));
    for (const std::string& path : in_order_of_rotation(given.paths)) {
        if (!files.add(path)) {
            return exit_failure;
        }
    }
    const log_history& history = files.history();
    return print(given.json  ? to_json(history) + "\n"
                 : given.svg ? to_svg(history)
                             : to_text(history),
                 history.has_faults() ? exit_faults : 0);
}

} // namespace csi_doctor
