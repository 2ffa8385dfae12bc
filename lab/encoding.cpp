#include "lab/encoding.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace csi_lab {
namespace {

constexpr std::string_view digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

unsigned byte_at(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
}

/// The size of the sequence that begins with this byte; 0 for a byte that begins none.
std::size_t sequence_size(unsigned first) {
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xc2 || first > 0xf4) {
        return 0;
    }
    return first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
}

/// Neither surrogates nor what is longer than needed nor what is above U+10FFFF: their second byte
/// tells them.
bool is_valid_second(unsigned first, unsigned second) {
    switch (first) {
    case 0xe0:
        return second >= 0xa0;
    case 0xed:
        return second < 0xa0;
    case 0xf0:
        return second >= 0x90;
    case 0xf4:
        return second < 0x90;
    default:
        return true;
    }
}

} // namespace

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const unsigned first = byte_at(text, 0);
        const std::size_t size = sequence_size(first);
        if (size == 0 || (size > 1 && !is_valid_second(first, byte_at(text, 1)))) {
            return false;
        }
        for (std::size_t index = 1; index < size; ++index) {
            if ((byte_at(text, index) & 0xc0U) != 0x80) {
                return false;
            }
        }
        text.remove_prefix(size);
    }
    return true;
}

std::string_view beginning_of(std::string_view text, std::size_t max_bytes) {
    std::size_t size = std::min(text.size(), max_bytes);
    while (size > 0 && size < text.size() && (byte_at(text, size) & 0xc0U) == 0x80) {
        --size;
    }
    return text.substr(0, size);
}

std::string to_base64(std::string_view bytes) {
    std::string result;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 3))) {
        const unsigned group =
            byte_at(bytes, 0) << 16U | byte_at(bytes, 1) << 8U | byte_at(bytes, 2);
        for (unsigned digit = 0; digit < 4; ++digit) {
            const bool used = digit <= bytes.size();
            result += used ? digits[group >> (18U - 6U * digit) & 63U] : '=';
        }
    }
    return result;
}

std::optional<std::string> from_base64(std::string_view text) {
    const std::size_t padding = text.size() - std::min(text.find('='), text.size());
    if (text.size() % 4 != 0 || padding > 2 ||
        text.substr(text.size() - padding).find_first_not_of('=') != std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_suffix(padding);
    std::string result;
    unsigned bits = 0;
    unsigned count = 0;
    for (const char c : text) {
        const std::size_t digit = digits.find(c);
        if (digit == std::string_view::npos) {
            return std::nullopt;
        }
        bits = bits << 6U | static_cast<unsigned>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            result += static_cast<char>(bits >> count & 0xffU);
        }
    }
    return result;
}

} // namespace csi_lab
