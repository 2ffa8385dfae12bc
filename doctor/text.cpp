#include "doctor/text.h"

#include <array>
#include <cstdio>

namespace csi_doctor {

std::string printable(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f) {
            result += c;
            continue;
        }
        std::array<char, 5> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x", unsigned{byte});
        result += escape.data();
    }
    return result;
}

std::string in_quotes(std::string_view text) {
    return "\"" + printable(text) + "\"";
}

std::string counted(std::size_t number, const std::string& noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

} // namespace csi_doctor
