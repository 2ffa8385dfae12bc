#include "doctor/encoding_checks.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <string_view>

#include "doctor/syntax_checks.h"
#include "doctor/text.h"

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

place line_of(const std::string& text, std::size_t at) {
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(at);
    return at_line(static_cast<std::size_t>(std::count(text.begin(), end, '\n')) + 1, "");
}

/// A control byte other than white space.
bool is_binary(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == 0x7f || (byte < 0x20 && std::isspace(byte) == 0);
}

/// False, with a finding, when the text contains such a byte.
bool check_binary(const std::string& text, report& findings) {
    const auto found = std::find_if(text.begin(), text.end(), is_binary);
    if (found == text.end()) {
        return true;
    }
    findings.fail("file_binary"_code, line_of(text, static_cast<std::size_t>(found - text.begin())),
                  (*found == '\0' ? "contains a NUL byte"
                                  : "contains the control byte " + printable({&*found, 1})) +
                      ": the file is binary, not a configuration",
                  "give the path of the configuration, or save it as plain text");
    return false;
}

/// Reports the first carriage return other than at a line's end.
void check_carriage_returns(const std::string& text, report& findings) {
    std::size_t at = text.find('\r');
    while (at != std::string::npos && (at + 1 == text.size() || text[at + 1] == '\n')) {
        at = text.find('\r', at + 1);
    }
    if (at == std::string::npos) {
        return;
    }
    const char first_of_line = text[text.rfind('\n', at) + 1];      // npos + 1 is 0
    findings.add({first_of_line == '#' ? level::warn : level::fail, // may hide a setting, or not
                  "file_carriage_return"_code, line_of(text, at),
                  "contains a carriage return, which the daemon does not treat as a line end",
                  save_as_plain_text});
}

} // namespace

bool check_encoding(const std::string& text, report& findings) {
    if (is_utf16(text)) {
        findings.fail("file_utf16"_code, "file",
                      "is encoded in UTF-16, which the daemon cannot read", save_as_plain_text);
        return false;
    }
    if (!check_binary(text, findings)) {
        return false;
    }
    if (starts_with(text, "\xef\xbb\xbf")) {
        findings.warn("file_byte_order_mark"_code, at_line(1, ""),
                      "begins with a byte order mark, which the daemon takes as part of the line",
                      "save the file as UTF-8 without a byte order mark, or as ASCII");
    }
    check_carriage_returns(text, findings);
    return true;
}

} // namespace csi_doctor
