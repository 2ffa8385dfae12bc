#include "lab/script.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "lab/input_file.h"

namespace csi_lab {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr double max_seconds = 86400;
constexpr milliseconds is_command(-1);
constexpr milliseconds default_time(10'000); // of "expect"
/// The longest time for the commands that are still queued at the end.
constexpr std::chrono::seconds answer_time(30);

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    const std::size_t last = text.find_last_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

/// Throws std::runtime_error for anything but a number of seconds, with or without "s".
milliseconds parse_seconds(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const std::string_view unit(end);
    const bool valid = end != text.c_str() && (unit.empty() || unit == "s") && seconds >= 0 &&
                       seconds <= max_seconds;
    if (!valid) {
        throw std::runtime_error("\"" + text + "\" is not a number of seconds, 0 to 86400");
    }
    return milliseconds(std::lround(seconds * 1000));
}

statement parse_expect(std::size_t number, const std::string& text) {
    constexpr std::string_view within = " within ";
    std::string wanted = text.substr(std::string_view("expect").size());
    milliseconds time = default_time;
    const std::size_t end = wanted.rfind(within);
    if (end != std::string::npos) {
        time = parse_seconds(trimmed(wanted.substr(end + within.size())));
        wanted.resize(end);
    }
    wanted = trimmed(wanted);
    if (wanted.empty()) {
        throw std::runtime_error("usage: expect PATTERN [within SECONDS]");
    }
    return {number, text, pattern(wanted), time};
}

statement parse_statement(std::size_t number, const std::string& text,
                          const peers::installation_options& lab, bool has_daemon) {
    const std::string word = text.substr(0, text.find_first_of(" \t"));
    if (word == "expect") {
        return parse_expect(number, text);
    }
    if (word == "wait") {
        return {number, text, std::nullopt, parse_seconds(trimmed(text.substr(word.size())))};
    }
    const std::string wrong = check_command(text, lab, has_daemon);
    if (!wrong.empty()) {
        throw std::runtime_error(wrong);
    }
    return {number, text, std::nullopt, is_command};
}

auto add_statement_to(std::vector<statement>& result, const peers::installation_options& lab,
                      bool has_daemon) {
    return [&result, &lab, has_daemon](std::size_t number, const std::string& line) {
        const std::string text = trimmed(line);
        if (!text.empty() && text.front() != '#') {
            result.push_back(parse_statement(number, text, lab, has_daemon));
        }
    };
}

std::string in_seconds(milliseconds time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g s", static_cast<double>(time.count()) / 1000);
    return text.data();
}

} // namespace

std::vector<statement> read_script(std::istream& from, const peers::installation_options& lab,
                                   bool has_daemon) {
    std::vector<statement> result;
    read_lines(from, add_statement_to(result, lab, has_daemon));
    return result;
}

std::vector<statement> read_script(const std::string& path, const peers::installation_options& lab,
                                   bool has_daemon) {
    std::vector<statement> result;
    read_lines(path, add_statement_to(result, lab, has_daemon));
    return result;
}

script_runner::script_runner(const stage& on, traffic& seen, console& signals, printer& to)
    : on_(on)
    , seen_(seen)
    , signals_(signals)
    , to_(to) {}

bool script_runner::run(const std::vector<statement>& script) {
    result latest = result::proceed;
    for (const statement& what : script) {
        latest = execute_one(what);
        if (latest != result::proceed) {
            break;
        }
    }
    if (latest == result::failed || (latest == result::proceed && !wait_for_answers())) {
        return false;
    }
    if (met_ > 0) {
        to_.say(met_ == 1 ? "The expectation was met."
                          : "All " + std::to_string(met_) + " expectations were met.");
    }
    return true;
}

script_runner::result script_runner::execute_one(const statement& what) {
    if (what.expected) {
        return expect(what);
    }
    return what.time == is_command ? execute_command(what) : wait(what);
}

script_runner::result script_runner::execute_command(const statement& what) {
    const command_result done = execute(what.text, on_);
    for (const std::string& line : done.lines) {
        to_.say(line);
        seen_.add(line);
    }
    return done.quit ? result::quit : result::proceed;
}

script_runner::result script_runner::wait(const statement& what) {
    const auto end = steady_clock::now() + what.time;
    const peers::waker never;
    if (signals_.wait(never, std::chrono::ceil<milliseconds>(end - steady_clock::now()))) {
        return result::proceed;
    }
    to_.say("interrupted in line " + std::to_string(what.line));
    return result::failed;
}

script_runner::result script_runner::expect(const statement& what) {
    const auto end = steady_clock::now() + what.time;
    while (true) {
        seen_.added().reset();
        if (const auto found = seen_.find(*what.expected, next_line_)) {
            next_line_ = *found + 1;
            ++met_;
            to_.say("ok    line " + std::to_string(what.line) + ": " + what.expected->written());
            return result::proceed;
        }
        const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        if (left.count() <= 0) {
            report_failure(what);
            return result::failed;
        }
        if (!signals_.wait(seen_.added(), left)) {
            to_.say("interrupted in line " + std::to_string(what.line));
            return result::failed;
        }
    }
}

void script_runner::report_failure(const statement& what) {
    constexpr std::size_t shown_lines = 10;
    to_.say("FAIL  line " + std::to_string(what.line) + ": expected " + what.expected->written() +
            " within " + in_seconds(what.time));
    const auto lines = seen_.latest(shown_lines);
    to_.say(lines.empty() ? "      nothing was seen" : "      the last lines seen:");
    for (const std::string& line : lines) {
        to_.say("      " + line);
    }
}

bool script_runner::wait_for_answers() {
    if (!on_.lab.has_server()) {
        return true;
    }
    const auto end = steady_clock::now() + answer_time;
    const peers::waker never;
    while (!on_.lab.server().all_answered()) {
        if (steady_clock::now() > end) {
            to_.say("FAIL  at the end: " + std::to_string(on_.lab.server().queued()) +
                    " queued commands were not fetched, or the last one was not answered");
            return false;
        }
        if (!signals_.wait(never, milliseconds(20))) {
            to_.say("interrupted at the end, before all commands were answered");
            return false;
        }
    }
    return true;
}

} // namespace csi_lab
