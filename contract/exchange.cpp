#include "contract/exchange.h"

#include <algorithm>
#include <string_view>

#include "contract/schemas.h"

namespace contract {
namespace {

bool is_core(const std::string& peer) {
    return peer.rfind("core", 0) == 0;
}

bool has_schema(const std::string& family, std::string_view message) {
    return find_place("/" + family + ".json").child("definitions").child(message).exists();
}

std::string text_member(const json::value& message, std::string_view name) {
    return std::string(json::find_string(message, name).value_or(""));
}

/// "engine", the command's word if the family has it, or `other`.
std::string word_of(const json::value& message, const std::string& family,
                    const std::string& other) {
    if (!message.IsObject()) {
        return other;
    }
    if (json::find_string(message, "engineType")) {
        return "engine";
    }
    const std::string word = text_member(message, "cmd");
    const bool known = word != "engine" && word != "unknown" && has_schema(family, word);
    return known ? word : other;
}

std::string core_word(const std::string& request) {
    const json::document parsed = json::parse(request);
    const bool pings = parsed.IsObject() && json::find(parsed, "ping") != nullptr;
    return word_of(parsed, "core_request", pings ? "ping" : "");
}

/// What the daemon replies to a command.
kind reply_to(const std::string& command) {
    const json::document parsed = json::parse(command);
    if (!parsed.IsObject()) {
        return {"reply", "object_error"};
    }
    const bool has_word = !text_member(parsed, "cmd").empty();
    return {"reply", word_of(parsed, "command", has_word ? "unknown" : "missing_command")};
}

bool is_attach(const json::value& message) {
    return message.IsObject() && text_member(message, "type") == "zorvin" &&
           json::find(message, "cmd") == nullptr;
}

kind daemon_to_server(const exchange& what) {
    if (what.text.empty()) {
        return {};
    }
    const json::document parsed = json::parse(what.text);
    const bool has_request = parsed.IsObject() && json::find(parsed, "request") != nullptr;
    const bool is_v3 = what.path.empty() ? has_request : what.path.rfind("/v3/", 0) == 0;
    const std::string version = is_v3 ? "v3" : "v2";
    if (what.text.back() == '\n') {
        const bool reports = parsed.IsObject() && text_member(parsed, "cmd") == "scan";
        return {reports ? "scan_report" : "status", version};
    }
    if (!what.request.empty()) {
        return reply_to(what.request);
    }
    return is_attach(parsed) ? kind{"attach", version} : kind{"reply", ""};
}

kind server_to_daemon(const exchange& what) {
    const bool ignored = what.method == "POST" && !is_attach(json::parse(what.request));
    if (what.text.empty() || ignored) {
        return {};
    }
    return {"command", word_of(json::parse(what.text), "command", "unknown")};
}

} // namespace

std::string name_of(const kind& what) {
    return what.message.empty() ? what.family : what.family + "/" + what.message;
}

kind kind_named(const std::string& name) {
    const std::size_t end = std::min(name.find('/'), name.size());
    return {name.substr(0, end), name.substr(std::min(end + 1, name.size()))};
}

std::vector<kind> all_kinds() {
    std::vector<kind> result;
    for (const schema_file& file : schema_files) {
        const std::string family(file.name.substr(0, file.name.rfind('.')));
        if (family == "common") {
            continue;
        }
        const place definitions = find_place("/" + family + ".json/definitions");
        for (const auto& definition : definitions.schema->GetObject()) {
            result.push_back({family, std::string(json::text_of(definition.name))});
        }
    }
    return result;
}

kind classify(const exchange& what) {
    if (what.to == "server") {
        return daemon_to_server(what);
    }
    if (what.from == "server") {
        return server_to_daemon(what);
    }
    if (is_core(what.to)) {
        return {"core_request", core_word(what.text)};
    }
    if (is_core(what.from)) {
        return {"core_reply", core_word(what.request)};
    }
    return {what.to == "fusion" ? "fusion_request" : "fusion_reply", "engine"};
}

} // namespace contract
