/// The subcommand "log": what a daemon did, according to its log files.
#pragma once

#include <string>
#include <vector>

namespace csi_doctor {

/// The files' paths in the order in which they were written: those of one log, which differ in the
/// number at the end, from the highest number down to the one without. Different logs stay in the
/// order given.
[[nodiscard]] std::vector<std::string> in_order_of_rotation(std::vector<std::string> paths);

/// The files of the same logs that were written between the given ones, but are not among them.
[[nodiscard]] std::vector<std::string> missing_between(const std::vector<std::string>& paths);

/// `arguments`: those after "log". Returns the exit status.
[[nodiscard]] int run_log_command(const std::vector<std::string>& arguments);

} // namespace csi_doctor
