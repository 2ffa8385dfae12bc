/// Values that mean something else to the daemon than they look like.
#pragma once

#include <string>

#include "tools/findings.h"
#include "tools/line_checks.h"

namespace csi_doctor {

/// All keys but "routing", each if it is there. Looks at nothing but the values.
void check_values(const settings& from, report& to);

/// What is wrong with an identity, as a clause about it; empty when nothing is.
[[nodiscard]] std::string identifier_fault(const std::string& id);

/// What to do about that.
constexpr const char* identifier_remedy =
    "write a number of up to 64 bits: decimal without leading zeros, or hexadecimal with 0x in "
    "lower case";

/// What is wrong with the server's name, apart from whether it exists; empty when nothing is.
[[nodiscard]] std::string server_fault(const std::string& server);

/// Whether the log goes to a file and not to standard output.
[[nodiscard]] bool logs_to_file(const settings& from);

} // namespace csi_doctor
