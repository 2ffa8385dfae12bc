#include "doctor/identity.h"

#include <algorithm>
#include <string_view>

#include "platform/utilities.h"

namespace csi_doctor {
namespace {

constexpr std::size_t most_hexadecimal_digits = 16;

/// The clause; `sent` is the number that the daemon makes of it.
std::string fault_of(const std::string& written, const std::string& sent, bool& leading_zeros) {
    if (written.compare(0, 2, "0X") == 0) {
        return "is not taken for hexadecimal, because the X is in upper case";
    }
    const bool hexadecimal = written.compare(0, 2, "0x") == 0;
    const std::string digits = hexadecimal ? written.substr(2) : written;
    const char* allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) {
        const bool blank = written.find_first_of(" \t") != std::string::npos;
        return blank ? "has a blank in it" : "is no number";
    }
    const std::string significant =
        digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (hexadecimal ? significant.size() > most_hexadecimal_digits : sent != significant) {
        return "does not fit 64 bits";
    }
    leading_zeros = !hexadecimal && significant != digits;
    return leading_zeros ? "has leading zeros" : "";
}

} // namespace

identity read_identity(const std::string& written) {
    identity result{written, {}, {}, false};
    csi_receiver::hex_id_to_decimal(result.text);
    result.number = std::to_string(csi_receiver::parse_decimal(result.text));
    result.fault = fault_of(written, result.number, result.leading_zeros);
    return result;
}

} // namespace csi_doctor
