#include "doctor/encoding_checks.h"

#include <algorithm>
#include <string_view>

#include "doctor/syntax_checks.h"

namespace csi_doctor {
namespace {

constexpr const char* as_plain_text = "save the file as plain text with Unix line ends";

bool starts_with(const std::string& text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

/// By its mark, or by the half of each character that is zero in this alphabet.
bool is_utf16(const std::string& text) {
    const auto zero = [&text](std::size_t at) { return text.size() > 3 && text[at] == '\0'; };
    return starts_with(text, "\xff\xfe") || starts_with(text, "\xfe\xff") || (zero(0) && zero(2)) ||
           (zero(1) && zero(3));
}

/// A NUL, or a carriage return that is not just before the line's end. The text's end if none.
std::size_t find_odd_byte(const std::string& text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool ends_line = at + 1 == text.size() || text[at + 1] == '\n';
        if (text[at] == '\0' || (text[at] == '\r' && !ends_line)) {
            return at;
        }
    }
    return text.size();
}

void check_odd_bytes(const std::string& text, report& to) {
    const std::size_t at = find_odd_byte(text);
    if (at == text.size()) {
        return;
    }
    const std::size_t before = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
    const std::size_t start = before == std::string::npos ? 0 : before + 1;
    const auto line =
        std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
    const std::string where = place(static_cast<std::size_t>(line) + 1, "");
    const std::string what = text[at] == '\0'
                                 ? "has a NUL in it, which the daemon takes as a part of the line"
                                 : "has a carriage return in it, where the daemon sees no line end";
    if (text[start] == '#') { // perhaps it hides a setting, perhaps nothing
        to.warn(where, what, as_plain_text);
    } else {
        to.fail(where, what, as_plain_text);
    }
}

} // namespace

bool check_plain_text(const std::string& text, report& to) {
    if (is_utf16(text)) {
        to.fail("file", "is UTF-16, of which the daemon understands no line", as_plain_text);
        return false;
    }
    if (starts_with(text, "\xef\xbb\xbf")) {
        to.warn("line 1", "the file begins with a byte order mark, which spoils the first line",
                "save the file as UTF-8 without a byte order mark, or as ASCII");
    }
    check_odd_bytes(text, to);
    return true;
}

} // namespace csi_doctor
