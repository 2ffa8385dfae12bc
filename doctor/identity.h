/// The identity of the access point or of a Bot, as the daemon reads it.
#pragma once

#include <string>

namespace csi_doctor {

enum class identity_fault {
    none,
    upper_case_x,
    white_space,
    not_a_number,
    too_large,
    leading_zeros,
};

struct identity {
    std::string text;   // in URLs, and what a command's Bot is compared with
    std::string number; // in messages to the server
    identity_fault fault;
};

[[nodiscard]] identity parse_identity(const std::string& written);

/// What is wrong, as a clause: "has leading zeros".
[[nodiscard]] const char* describe(identity_fault fault);

/// What to do about any fault.
constexpr const char* identity_remedy =
    "write a number of up to 64 bits: decimal without leading zeros, or hexadecimal that begins "
    "with 0x in lower case";

} // namespace csi_doctor
