#include "doctor/encoding_checks.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "doctor/syntax_checks.h"

namespace csi_doctor {
namespace {

constexpr const char* save_as_plain_text = "save the file as plain text with Unix line ends";

bool starts_with(const std::string& text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

/// By its byte order mark, or because every other byte is zero, as in UTF-16 of ASCII characters.
bool is_utf16(const std::string& text) {
    const auto zero = [&text](std::size_t at) { return text.size() > 3 && text[at] == '\0'; };
    return starts_with(text, "\xff\xfe") || starts_with(text, "\xfe\xff") || (zero(0) && zero(2)) ||
           (zero(1) && zero(3));
}

/// A NUL, or a carriage return other than at a line's end. The text's size when there is none.
std::size_t find_odd_byte(const std::string& text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool ends_line = at + 1 == text.size() || text[at + 1] == '\n';
        if (text[at] == '\0' || (text[at] == '\r' && !ends_line)) {
            return at;
        }
    }
    return text.size();
}

void check_odd_bytes(const std::string& text, report& findings) {
    const std::size_t at = find_odd_byte(text);
    if (at == text.size()) {
        return;
    }
    const std::string before = text.substr(0, at);
    const auto line_ends = std::count(before.begin(), before.end(), '\n');
    const char first_of_line = text[before.rfind('\n') + 1];        // npos + 1 is 0
    findings.add({first_of_line == '#' ? level::warn : level::fail, // may hide a setting, or not
                  line_label(static_cast<std::size_t>(line_ends) + 1, ""),
                  text[at] == '\0'
                      ? "contains a NUL byte, which the daemon treats as part of the line"
                      : "contains a carriage return, which the daemon does not treat as a line end",
                  save_as_plain_text});
}

} // namespace

bool check_encoding(const std::string& text, report& findings) {
    if (is_utf16(text)) {
        findings.fail("file", "is encoded in UTF-16, which the daemon cannot read",
                      save_as_plain_text);
        return false;
    }
    if (starts_with(text, "\xef\xbb\xbf")) {
        findings.warn("line 1",
                      "begins with a byte order mark, which the daemon takes as part of the line",
                      "save the file as UTF-8 without a byte order mark, or as ASCII");
    }
    check_odd_bytes(text, findings);
    return true;
}

} // namespace csi_doctor
