#include "doctor/identity.h"

#include <algorithm>
#include <cstddef>

#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr std::size_t max_hex_digits = 16; // of 64 bits

/// `number` is what the daemon reads from it.
identity_fault find_fault(const std::string& written, const std::string& number) {
    if (written.compare(0, 2, "0X") == 0) {
        return identity_fault::upper_case_x;
    }
    const bool hexadecimal = written.compare(0, 2, "0x") == 0;
    const std::string digits = hexadecimal ? written.substr(2) : written;
    const char* allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) {
        const bool blank = written.find_first_of(" \t") != std::string::npos;
        return blank ? identity_fault::white_space : identity_fault::not_a_number;
    }
    const std::string significant =
        digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (hexadecimal) {
        return significant.size() > max_hex_digits ? identity_fault::too_large
                                                   : identity_fault::none;
    }
    if (number != significant) {
        return identity_fault::too_large;
    }
    return significant == digits ? identity_fault::none : identity_fault::leading_zeros;
}

} // namespace

identity parse_identity(const std::string& written) {
    std::string text = written;
    csi_receiver::hex_id_to_decimal(text);
    const std::string number = std::to_string(csi_receiver::parse_decimal(text));
    return {text, number, find_fault(written, number)};
}

const char* describe(identity_fault fault) {
    switch (fault) {
    case identity_fault::none:
        return "is correct";
    case identity_fault::upper_case_x:
        return "is not read as hexadecimal, because the X is in upper case";
    case identity_fault::white_space:
        return "contains white space";
    case identity_fault::not_a_number:
        return "is not a number";
    case identity_fault::too_large:
        return "does not fit in 64 bits";
    case identity_fault::leading_zeros:
        return "has leading zeros";
    }
    return "";
}

} // namespace csi_doctor
