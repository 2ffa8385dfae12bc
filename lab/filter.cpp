#include "lab/filter.h"

#include <algorithm>
#include <string_view>

#include "lab/printer.h"
#include "peers/core_service.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

std::set<std::string> words_of_text(const std::string& text) {
    std::set<std::string> result;
    const json::document parsed = json::parse(text);
    if (!parsed.IsObject()) {
        return result;
    }
    for (const std::string_view name : {"cmd", "engineType"}) {
        if (const auto word = json::find_string(parsed, name)) {
            result.emplace(*word);
        }
    }
    if (json::find(parsed, "ping") != nullptr) {
        result.emplace("ping");
    }
    return result;
}

std::set<std::string> words_of_peer(const std::string& name) {
    const std::string core_prefix = peers::core_name("");
    if (name.rfind(core_prefix, 0) == 0) {
        return {"core", "core:" + name.substr(core_prefix.size())};
    }
    return {name};
}

bool have_one_in_common(const std::set<std::string>& first, const std::set<std::string>& second) {
    return std::any_of(first.begin(), first.end(),
                       [&](const std::string& word) { return second.count(word) > 0; });
}

} // namespace

filter::filter(const std::vector<std::string>& only, const std::vector<std::string>& without)
    : only_(only.begin(), only.end())
    , without_(without.begin(), without.end()) {}

bool filter::shows(const peers::message& what) {
    if (only_.empty() && without_.empty()) {
        return true;
    }
    const std::set<std::string> words = words_of(what);
    return (only_.empty() || have_one_in_common(only_, words)) &&
           !have_one_in_common(without_, words);
}

std::set<std::string> filter::words_of(const peers::message& what) {
    std::set<std::string> words = words_of_text(what.text);
    const std::string& peer = what.from == "daemon" ? what.to : what.from;
    if (peer != "server" && what.from == "daemon") {
        latest_request_[peer] = words;
    } else if (what.to == "daemon" && peer != "server") {
        const auto& request = latest_request_[peer];
        words.insert(request.begin(), request.end());
    }
    words.merge(words_of_peer(what.from == "lab" ? what.to : peer));
    words.insert(label_of(what));
    return words;
}

} // namespace csi_lab
