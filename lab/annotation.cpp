#include "lab/annotation.h"

#include <array>
#include <string_view>
#include <utility>

#include "contract/exchange.h"
#include "contract/schemas.h"
#include "lab/encoding.h"
#include "lab/printer.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

/// The members that tell messages of one kind apart, in the order in which the label has them.
constexpr std::array<std::string_view, 15> telling{
    "bot",     "bots",  "uuid",     "engineType", "ifname", "rate",   "interval", "zorvin",
    "version", "found", "bot_info", "iftype",     "state",  "reason", "success"};

/// Identifiers of a list, or its length.
std::string describe_list(const json::value& list) {
    constexpr rapidjson::SizeType max_shown = 4;
    std::string result;
    for (const json::value& one : list.GetArray()) {
        const json::value* id = &one;
        if (one.IsObject()) {
            const json::value* const uuid = json::find(one, "uuid");
            id = uuid == nullptr ? json::find(one, "bot") : uuid;
        }
        if (list.Size() > max_shown || id == nullptr || id->IsObject() || id->IsArray()) {
            return std::to_string(list.Size()) + " entries";
        }
        result += (result.empty() ? "" : " ") +
                  (id->IsString() ? std::string(json::text_of(*id)) : json::write(*id));
    }
    return result.empty() ? "none" : result;
}

std::string describe_member(std::string_view name, const json::value& member) {
    constexpr std::size_t max_text = 32;
    if (name == "success" && member.IsBool()) {
        return member.IsTrue() ? "ok" : "failed";
    }
    if (member.IsArray() && (name == "found" || name == "bot_info")) {
        return std::to_string(member.Size()) + (member.Size() == 1 ? " Bot" : " Bots");
    }
    if (member.IsArray()) {
        return describe_list(member);
    }
    const json::value* const uuid = member.IsObject() ? json::find(member, "uuid") : nullptr;
    if (uuid != nullptr) {
        return describe_member(name, *uuid);
    }
    const std::string text =
        member.IsString() ? std::string(json::text_of(member)) : json::write(member);
    const bool is_named = name == "interval" || name == "rate" || name == "version";
    return (is_named ? std::string(name) + " " : "") +
           (text.size() > max_text ? std::string(beginning_of(text, max_text)) + " ..." : text);
}

std::string command_word(const std::string& text) {
    const json::document parsed = json::parse(text);
    if (!parsed.IsObject()) {
        return "";
    }
    const auto command = json::find_string(parsed, "cmd");
    return command ? std::string(*command) : json::find(parsed, "ping") != nullptr ? "ping" : "";
}

/// What the message is about, before its telling members.
std::string first_words(const entry& what, const std::optional<entry>& request) {
    if (what.to == "server") {
        peers::message message{};
        message.from = what.from;
        message.to = what.to;
        message.text = what.text;
        const std::string label = label_of(message);
        return label == "reply" ? command_word(what.text) : label;
    }
    const std::string own = command_word(what.text);
    return own.empty() && request && what.from != "server" ? command_word(request->text) : own;
}

std::string label_of_empty(const entry& what) {
    if (what.from == "daemon") {
        return what.method == "GET" ? "poll" : "empty message";
    }
    return what.status == 0    ? "empty answer"
           : what.status < 300 ? "ok"
                               : "status " + std::to_string(what.status);
}

std::string label_of_entry(const entry& what, const std::optional<entry>& request) {
    if (what.event == "timeout") {
        return "no answer" + (request ? " to " + first_words(*request, {}) : "");
    }
    if (what.text.empty()) {
        return label_of_empty(what);
    }
    const json::document parsed = json::parse(what.text);
    std::string result = first_words(what, request);
    if (!parsed.IsObject()) {
        result +=
            (result.empty() ? "" : " ") + std::to_string(what.text.size()) + " bytes, not JSON";
    }
    for (const std::string_view name : telling) {
        const json::value* const member = parsed.IsObject() ? json::find(parsed, name) : nullptr;
        const bool is_long = name == "version" && result.rfind("attach", 0) == 0;
        const bool is_no_failure =
            name == "success" && member != nullptr && member->IsFalse() && !says_failure(parsed);
        if (member != nullptr && !is_long && !is_no_failure) {
            result = result == name ? "" : result; // "rate 25", not "rate rate 25"
            result += (result.empty() ? "" : " ") + describe_member(name, *member);
        }
    }
    return (what.event == "cut" ? "cut off: " : "") + (result.empty() ? "message" : result);
}

std::string schema_text(const json::value& schema, std::string_view name) {
    return std::string(json::find_string(schema, name).value_or(""));
}

void add_schema_texts(annotation& to) {
    const contract::kind kind = contract::kind_named(to.kind);
    const std::string family = "/" + kind.family + ".json";
    const contract::place at = contract::find_place(
        kind.message.empty() ? family : family + "/definitions/" + kind.message);
    if (!to.kind.empty() && at.exists()) {
        to.title = schema_text(*at.schema, "title");
        to.description = schema_text(*at.schema, "description");
    }
}

} // namespace

bool says_failure(const json::value& message) {
    const json::value* const success =
        message.IsObject() ? json::find(message, "success") : nullptr;
    const bool is_start = success != nullptr && json::find_string(message, "cmd") == "start" &&
                          json::find(message, "engineType") == nullptr &&
                          json::find(message, "reason") == nullptr;
    return success != nullptr && success->IsFalse() && !is_start;
}

annotation annotator::next(const entry& what) {
    annotation result;
    result.breaches = judge_.next(what);
    result.kind = judge_.latest_kind();
    result.label = label_of_entry(what, judge_.latest_request());
    if (!is_utf8(result.label)) {
        result.label = std::to_string(what.text.size()) + " bytes, not UTF-8";
    }
    result.repeated = is_repeated(what);
    add_schema_texts(result);
    return result;
}

bool annotator::is_repeated(const entry& what) {
    const std::string peer = peer_of(what);
    if (what.from != "daemon") {
        if (what.event != "timeout") {
            unanswered_.erase(peer);
        }
        return false;
    }
    const auto before = unanswered_.find(peer);
    const bool result = before != unanswered_.end() && before->second.text == what.text &&
                        before->second.method == what.method && before->second.path == what.path;
    unanswered_.insert_or_assign(peer, what);
    return result;
}

std::string format_annotated(const entry& what, const annotation& with) {
    json::document members(rapidjson::kObjectType);
    json::allocator& memory = members.GetAllocator();
    json::set(members, "label", with.label, memory);
    if (!with.kind.empty()) {
        json::set(members, "name", with.kind, memory);
        json::set(members, "title", with.title, memory);
        json::set(members, "description", with.description, memory);
    }
    json::value breaches(rapidjson::kArrayType);
    for (const finding& one : with.breaches) {
        json::value breach(rapidjson::kObjectType);
        json::set(breach, "member", one.member, memory);
        json::set(breach, "wanted", one.wanted, memory);
        json::set(breach, "fatal", json::value(one.fatal), memory);
        breaches.PushBack(breach, memory);
    }
    json::set(members, "breaches", std::move(breaches), memory);
    return "{\"line\":" + format_entry(what) + "," + json::write(members).substr(1);
}

std::string format_annotated(const std::vector<entry>& recording) {
    annotator by;
    std::string result;
    for (const entry& what : recording) {
        result += (result.empty() ? "[" : ",\n") + format_annotated(what, by.next(what));
    }
    return result.empty() ? "[]" : result + "]";
}

} // namespace csi_lab
