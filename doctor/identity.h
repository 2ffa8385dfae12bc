/// An identity, of the access point or of a Bot, as the daemon takes it.
#pragma once

#include <string>

namespace csi_doctor {

struct identity {
    std::string text;   // in URLs, and what a command's Bot is compared with
    std::string number; // in messages to the server
    std::string fault;  // a clause about how it is written; empty when nothing is wrong
    bool leading_zeros; // the whole fault
};

[[nodiscard]] identity read_identity(const std::string& written);

/// What to do about a fault.
constexpr const char* identity_remedy =
    "write a number of up to 64 bits: decimal without leading zeros, or hexadecimal with 0x in "
    "lower case";

} // namespace csi_doctor
