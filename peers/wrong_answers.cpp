#include "peers/wrong_answers.h"

#include <algorithm>
#include <cstddef>

#include "platform/json.h"

namespace peers {
namespace {

constexpr const char* page =
    "<html><head><title>502 Bad Gateway</title></head><body>Bad Gateway</body></html>";

/// More than the daemon reads of a datagram.
constexpr std::size_t long_datagram = 5000;
/// More than the HTTP library of the daemon hands over at once.
constexpr std::size_t long_body = 20000;

void make_types_wrong(json::value& object, json::allocator& memory);

void make_type_wrong(json::value& member, json::allocator& memory) {
    if (member.IsArray()) {
        for (json::value& element : member.GetArray()) {
            make_type_wrong(element, memory);
        }
    } else if (member.IsObject()) {
        make_types_wrong(member, memory);
    } else if (member.IsString()) {
        member.SetInt(1);
    } else {
        member = json::make_string(json::write(member), memory);
    }
}

void make_types_wrong(json::value& object, json::allocator& memory) {
    for (auto& member : object.GetObject()) {
        make_type_wrong(member.value, memory);
    }
}

/// The object with each string as a number and everything else as a string.
std::string with_wrong_types(const std::string& text) {
    json::document parsed = json::parse(text);
    if (!parsed.IsObject()) {
        return text;
    }
    make_types_wrong(parsed, parsed.GetAllocator());
    return json::write(parsed);
}

std::string with_padding(const std::string& text, std::size_t size) {
    json::document parsed = json::parse(text);
    if (!parsed.IsObject()) {
        return text + std::string(size, ' ');
    }
    json::set(parsed, "padding", std::string(size, 'x'), parsed.GetAllocator());
    return json::write(parsed);
}

bool asks_for_info(const std::string& request) {
    const json::document parsed = json::parse(request);
    return parsed.IsObject() && json::find_string(parsed, "cmd") == "info";
}

std::string with_mode(const std::string& reply) {
    json::document parsed = json::parse(reply);
    json::set(parsed, "iftype", "managed", parsed.GetAllocator());
    return json::write(parsed);
}

bool gives(const wrong_answer_row& row, std::string_view peer) {
    return row.peers.find(peer) != std::string_view::npos;
}

} // namespace

const std::vector<wrong_answer_row>& wrong_answers() {
    static const std::vector<wrong_answer_row> rows{
        {"mode", wrong_answer::mode, "core", "interfaces are in another mode than \"ap\""},
        {"interface", wrong_answer::interface, "core", "interfaces are unknown"},
        {"type", wrong_answer::type, "core fusion server", "members have the wrong types"},
        {"long", wrong_answer::too_long, "core fusion server", "answers are too long"},
        {"late", wrong_answer::late, "core fusion server", "answers come after the time-out"},
        {"twice", wrong_answer::twice, "core fusion", "answers come twice"},
        {"page", wrong_answer::page, "core fusion server", "answers are error pages, not JSON"},
        {"body", wrong_answer::body, "server", "polls without a command have a body, {}"},
        {"cut", wrong_answer::cut, "server", "bodies break off in the middle"},
        {"status", wrong_answer::status, "server", "answers have the status 503"},
        {"redirect", wrong_answer::redirect, "server", "requests are redirected"},
    };
    return rows;
}

const wrong_answer_row* find_wrong_answer(std::string_view name) {
    static const wrong_answer_row off{"off", wrong_answer::none, "core fusion server", ""};
    const auto& rows = wrong_answers();
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.name == name; });
    if (found != rows.end()) {
        return &*found;
    }
    return name == off.name ? &off : nullptr;
}

std::string wrong_answers_of(std::string_view peer) {
    std::string result;
    for (const wrong_answer_row& row : wrong_answers()) {
        if (gives(row, peer)) {
            result += (result.empty() ? "" : ", ") + std::string(row.name);
        }
    }
    return result;
}

std::string spoil(wrong_answer kind, const std::string& request, const std::string& reply) {
    switch (kind) {
    case wrong_answer::mode:
        return asks_for_info(request) ? with_mode(reply) : reply;
    case wrong_answer::interface:
        return asks_for_info(request) ? R"({"success":false,"reason":"unknown interface"})" : reply;
    case wrong_answer::type:
        return with_wrong_types(reply);
    case wrong_answer::too_long:
        return with_padding(reply, long_datagram);
    case wrong_answer::page:
        return page;
    default:
        return reply;
    }
}

void spoil(wrong_answer kind, const std::string& path, http_response& response) {
    switch (kind) {
    case wrong_answer::type:
        response.body = with_wrong_types(response.body);
        break;
    case wrong_answer::too_long:
        response.body = response.body.empty() ? "" : with_padding(response.body, long_body);
        break;
    case wrong_answer::page:
        response.status = 502;
        response.content_type = "text/html";
        response.body = page;
        break;
    case wrong_answer::body:
        response.body = response.body.empty() ? "{}" : response.body;
        break;
    case wrong_answer::cut:
        response.cut = true;
        break;
    case wrong_answer::status:
        response.status = 503;
        break;
    case wrong_answer::redirect:
        response.status = 307;
        response.location = path + std::string(redirected);
        response.body.clear();
        break;
    default:
        break;
    }
}

} // namespace peers
