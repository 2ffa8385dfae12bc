/// The cases: which call of the daemon fails, when and how.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace csi_faults {

/// A call is identified by its name, its call stack and how many calls with both came before it.
struct fault_case {
    std::string call; // as the library in the daemon names it; "strace/" and a system call's name
    std::string stack;
    unsigned occurrence = 1;
    std::string error; // such as "EINTR", or "SHORT" or "EOF"
    bool from_then_on = false;

    /// "recv.stream@0123456789abcdef#1:EINTR:once"
    [[nodiscard]] std::string name() const;
    /// For the library in the daemon.
    [[nodiscard]] std::string variable() const;
};

/// Throws std::runtime_error when the name is not well-formed.
[[nodiscard]] fault_case parse_case(const std::string& name);

/// All cases for the calls in the file, which the library wrote in a run without a fault.
[[nodiscard]] std::vector<fault_case> cases_for(const std::string& record);

} // namespace csi_faults
