#include "peers/http_message.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <optional>

#include <strings.h>

#include "peers/connection.h"

namespace peers {
namespace {

constexpr std::size_t max_head_bytes = 65536;
constexpr std::size_t max_body_bytes = 16 << 20;
constexpr std::string_view head_end = "\r\n\r\n";

bool equal_in_any_case(std::string_view first, std::string_view second) {
    return first.size() == second.size() &&
           strncasecmp(first.data(), second.data(), first.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    const std::size_t last = text.find_last_not_of(" \t");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, last - first + 1);
}

/// Takes the text up to the separator off the front; the whole text if there is no separator.
std::string_view take_until(std::string_view& text, std::string_view separator) {
    const std::size_t end = text.find(separator);
    const std::string_view result = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + separator.size());
    return result;
}

/// Reads to the end of the head, which the result includes.
read_result read_head(connection& from, std::string& head) {
    char next = 0;
    while (head.size() < max_head_bytes) {
        if (from.read(&next, 1) == 0) {
            return read_result::closed;
        }
        head += next;
        if (next == '\n' && head.size() >= head_end.size() &&
            head.compare(head.size() - head_end.size(), head_end.size(), head_end) == 0) {
            return read_result::complete;
        }
    }
    return read_result::malformed;
}

bool parse_head(std::string_view head, http_request& to) {
    std::string_view first_line = take_until(head, "\r\n");
    to.method = take_until(first_line, " ");
    to.path = take_until(first_line, " ");
    const bool is_http_1_0 = first_line == "HTTP/1.0";
    if (to.method.empty() || to.path.empty() || (!is_http_1_0 && first_line != "HTTP/1.1")) {
        return false;
    }
    while (!head.empty()) {
        std::string_view value = take_until(head, "\r\n");
        const std::string_view name = take_until(value, ":");
        if (!name.empty()) {
            to.headers.emplace_back(name, trimmed(value));
        }
    }
    const std::string wish = to.header("Connection");
    to.keep_alive =
        is_http_1_0 ? equal_in_any_case(wish, "keep-alive") : !equal_in_any_case(wish, "close");
    return true;
}

/// nullopt when the head does not say it, or says too much.
std::optional<std::size_t> body_size(const http_request& request) {
    const std::string text = request.header("Content-Length");
    if (text.empty()) {
        return request.header("Transfer-Encoding").empty() ? std::optional<std::size_t>(0)
                                                           : std::nullopt;
    }
    if (text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const unsigned long long size = std::strtoull(text.c_str(), nullptr, 10);
    return size <= max_body_bytes ? std::optional(static_cast<std::size_t>(size)) : std::nullopt;
}

read_result read_body(connection& from, http_request& to) {
    const auto size = body_size(to);
    if (!size) {
        return read_result::malformed;
    }
    if (*size > 0 && equal_in_any_case(to.header("Expect"), "100-continue") &&
        !from.write("HTTP/1.1 100 Continue\r\n\r\n")) {
        return read_result::closed;
    }
    to.body.resize(*size);
    for (std::size_t read = 0; read < *size;) {
        const std::size_t count = from.read(to.body.data() + read, *size - read);
        if (count == 0) {
            return read_result::closed;
        }
        read += count;
    }
    return read_result::complete;
}

const char* reason_phrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 204:
        return "No Content";
    case 307:
        return "Temporary Redirect";
    case 404:
        return "Not Found";
    case 502:
        return "Bad Gateway";
    default:
        return ""; // may be left out
    }
}

} // namespace

std::string http_request::header(std::string_view name) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& one) {
        return equal_in_any_case(one.first, name);
    });
    return found == headers.end() ? std::string() : found->second;
}

read_result read_request(connection& from, http_request& to) {
    std::string head;
    const read_result result = read_head(from, head);
    if (result != read_result::complete) {
        return result;
    }
    to.when = std::chrono::steady_clock::now();
    to.remote_port = from.remote_port();
    return parse_head(head, to) ? read_body(from, to) : read_result::malformed;
}

std::string format_response(const http_response& what, bool keep_alive) {
    std::string result =
        "HTTP/1.1 " + std::to_string(what.status) + " " + reason_phrase(what.status) + "\r\n";
    if (!what.location.empty()) {
        result += "Location: " + what.location + "\r\n";
    }
    for (const auto& [name, value] : what.headers) {
        result.append(name).append(": ").append(value).append("\r\n");
    }
    if (!what.body.empty()) {
        result += "Content-Type: " + what.content_type + "\r\n";
    }
    if (what.status != 204) {
        result += "Content-Length: " + std::to_string(what.body.size()) + "\r\n";
    }
    result += keep_alive ? "\r\n" : "Connection: close\r\n\r\n";
    return result + (what.cut ? what.body.substr(0, what.body.size() / 2) : what.body);
}

} // namespace peers
