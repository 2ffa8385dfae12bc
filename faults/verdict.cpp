#include "faults/verdict.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include <sys/wait.h>

namespace csi_faults {
namespace {

// One failed call may cost one command, and the daemon may then be busy for longer.
constexpr unsigned lost_by_one_fault = 1;
constexpr double busy_factor = 10;     // of the usual system calls per second
constexpr double busy_cpu_seconds = 3; // on top of the usual

constexpr std::string_view closing_lines = "Closing monitor client\nExiting csi_receiver\n";
constexpr std::string_view exception_line = "EXCEPTION: ";
constexpr std::string_view failed_lines =
    "\nError starting monitor\nClosing monitor client\nExiting csi_receiver\n";

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool has(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// Before the daemon works it needs these; refused memory may end it at any time.
bool may_end_daemon(const std::string& call) {
    const std::initializer_list<std::string_view> fatal = {
        "memory", "fopen", "read.file", "signalfd", "timer_create", "strace/clone3"};
    return std::find(fatal.begin(), fatal.end(), call) != fatal.end();
}

/// A connection that was kept open and fails before the first byte of the answer: libcurl sends the
/// request again, although the server may have had it.
bool may_repeat_request(const std::string& call) {
    return call == "recv.stream";
}

/// The lines and the status that docs/operations.md promises for each way to end.
bool is_documented_end(const observation& seen) {
    const int status = WEXITSTATUS(seen.status);
    if (status == 1) {
        return ends_with(seen.output, "EXCEPTION: out of memory\n") ||
               ends_with(seen.output, "Error initializing signal handling\n") ||
               ends_with(seen.output, "could not be opened\n");
    }
    return status == 0 && has(seen.output, exception_line) && ends_with(seen.output, failed_lines);
}

std::string last_line(std::string_view text) {
    text = text.substr(0, std::min(text.find_last_not_of('\n') + 1, text.size()));
    return std::string(text.substr(text.find_last_of('\n') + 1));
}

/// What is wrong with the way the process ended after SIGTERM.
std::optional<std::string> judge_end(const fault_case& fault, const observation& seen) {
    if (seen.deaf) {
        return "does not end after SIGTERM";
    }
    if (WIFSIGNALED(seen.status)) {
        return "ended by signal " + std::to_string(WTERMSIG(seen.status));
    }
    if (seen.ended_by_itself) {
        return std::nullopt; // judged by itself
    }
    const bool output_fails = fault.call == "strace/write";
    const bool memory_gone = may_end_daemon(fault.call) && is_documented_end(seen);
    if (WEXITSTATUS(seen.status) != 0 && !memory_gone) {
        return "status " + std::to_string(WEXITSTATUS(seen.status)) + " after SIGTERM";
    }
    if (!ends_with(seen.output, closing_lines) && !output_fails) {
        return "no closing lines after SIGTERM, but: " + last_line(seen.output);
    }
    return std::nullopt;
}

std::optional<std::string> judge_load(const observation& seen, const observation& usual) {
    if (seen.calls_per_second > busy_factor * usual.calls_per_second) {
        return "spins: " + std::to_string(static_cast<long>(seen.calls_per_second)) +
               " system calls per second";
    }
    if (seen.cpu_seconds > usual.cpu_seconds + busy_cpu_seconds) {
        return "spins: " + std::to_string(seen.cpu_seconds) + " s of CPU time";
    }
    return std::nullopt;
}

/// Only a fault that has passed must leave no trace.
std::optional<std::string> judge_work(const observation& seen, const observation& usual) {
    if (!seen.waited_for.empty()) {
        return "did not come back: no " + seen.waited_for;
    }
    if (seen.lost > lost_by_one_fault) {
        return std::to_string(seen.lost) + " commands without a reply";
    }
    if (seen.descriptors > usual.descriptors) {
        return std::to_string(seen.descriptors) + " descriptors instead of " +
               std::to_string(usual.descriptors);
    }
    return std::nullopt;
}

std::optional<std::string> find_violation(const fault_case& fault, const observation& seen,
                                          const observation& usual) {
    std::optional<std::string> found = judge_end(fault, seen);
    if (!found && seen.ended_by_itself &&
        !(may_end_daemon(fault.call) && is_documented_end(seen))) {
        found = "ended with status " + std::to_string(WEXITSTATUS(seen.status)) + ": " +
                last_line(seen.output);
    }
    if (!found && seen.doubled > (may_repeat_request(fault.call) ? 1 : 0)) {
        found = "a reply was sent twice";
    }
    if (!found) {
        found = judge_load(seen, usual);
    }
    if (!found && !fault.from_then_on && !seen.ended_by_itself) {
        found = judge_work(seen, usual);
    }
    return found;
}

} // namespace

verdict judge(const fault_case& fault, const observation& seen, const observation& usual) {
    const std::string at = "lost " + std::to_string(seen.lost) + ", doubled " +
                           std::to_string(seen.doubled) + ", " + std::to_string(seen.seconds) +
                           " s";
    if (const auto violation = find_violation(fault, seen, usual)) {
        return {"violation", *violation + " (" + at + ")"};
    }
    if (!seen.fired) {
        return {"not reached", at};
    }
    return {seen.ended_by_itself ? "ended" : "survived", at};
}

std::optional<std::string> judge_usual(const observation& seen) {
    fault_case none;
    std::optional<std::string> found = find_violation(none, seen, seen);
    if (!found && seen.lost != 0) {
        found = "a command without a reply";
    }
    return found;
}

} // namespace csi_faults
