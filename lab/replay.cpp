#include "lab/replay.h"

#include <algorithm>
#include <set>

#include "lab/pairing.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

/// The text without what differs from one build of the daemon to the next.
std::string comparable(const entry& request) {
    if (request.to != "server") {
        return request.text;
    }
    json::document parsed = json::parse(request.text);
    if (!parsed.IsObject() || json::find(parsed, "version") == nullptr) {
        return request.text;
    }
    json::set(parsed, "version", "", parsed.GetAllocator());
    return json::write(parsed);
}

std::string key_of(const entry& request) {
    return peer_of(request) + ' ' + request.method + ' ' + request.path + ' ' + comparable(request);
}

/// The command, or whatever else names the request.
std::string name_of(const entry& request) {
    const json::document parsed = json::parse(request.text);
    if (!parsed.IsObject()) {
        return request.text;
    }
    for (const char* const name : {"cmd", "type", "request"}) {
        if (const auto word = json::find_string(parsed, name)) {
            return std::string(*word);
        }
    }
    return parsed.ObjectEmpty() ? "" : std::string(json::text_of(parsed.MemberBegin()->name));
}

bool depends_on_time(const entry& request) {
    const std::string name = name_of(request);
    return request.method == "GET" ||
           (request.to == "core" && (name == "active_bots" || name == "ping"));
}

std::string place(const entry& request) {
    return request.line == 0 ? "" : " (line " + std::to_string(request.line) + ")";
}

} // namespace

replay_book::replay_book(const std::vector<entry>& recording) {
    pairing pairs;
    double latest = recording.empty() ? 0 : recording.front().time;
    for (const entry& what : recording) {
        longest_gap_ = std::max(longest_gap_, what.time - latest);
        latest = what.time;
        const auto request = pairs.request_of(what);
        if (what.from == "daemon") {
            exchanges_.push_back({what, {}, key_of(what), depends_on_time(what)});
            missing_count_ += exchanges_.back().timed ? 0U : 1U;
        } else if (request) {
            // The latest: an answer that was repeated belongs to no earlier one.
            const auto found =
                std::find_if(exchanges_.rbegin(), exchanges_.rend(),
                             [key = key_of(*request)](const auto& one) { return one.key == key; });
            found->answers.push_back(what);
        }
    }
}

replayed_answer replay_book::answer(const entry& request) {
    const std::string key = key_of(request);
    if (recorded_exchange* const unused = find(key, false)) {
        use(*unused);
        return {unused->answers, ""};
    }
    recorded_exchange* const again = find(key, true);
    if (again != nullptr && request.method == "GET") {
        entry empty = request; // no more commands
        empty.text.clear();
        empty.status = 200;
        return {{empty}, ""};
    }
    if (again != nullptr) {
        return {again->answers,
                again->timed ? "" : "made more often than recorded: " + request.text};
    }
    if (recorded_exchange* const similar = find_similar(request)) {
        use(*similar);
        return {similar->answers, "recorded" + place(similar->request) + ": " +
                                      similar->request.text + "\n   now: " + request.text};
    }
    return {{},
            "not recorded: " +
                (request.method.empty() ? "" : request.method + " " + request.path + " ") +
                request.text};
}

recorded_exchange* replay_book::find(const std::string& key, bool used) {
    // The latest one that was used, or the first that was not.
    recorded_exchange* result = nullptr;
    for (recorded_exchange& one : exchanges_) {
        if (one.used == used && one.key == key) {
            result = &one;
            if (!used) {
                break;
            }
        }
    }
    return result;
}

recorded_exchange* replay_book::find_similar(const entry& request) {
    const auto found =
        std::find_if(exchanges_.begin(), exchanges_.end(), [&](const recorded_exchange& one) {
            return !one.used && peer_of(one.request) == peer_of(request) &&
                   one.request.method == request.method && name_of(one.request) == name_of(request);
        });
    return found == exchanges_.end() ? nullptr : &*found;
}

std::vector<std::string> replay_book::peers() const {
    std::set<std::string> names;
    for (const recorded_exchange& one : exchanges_) {
        names.insert(peer_of(one.request));
    }
    return {names.begin(), names.end()};
}

std::vector<entry> replay_book::missing() const {
    std::vector<entry> result;
    for (const recorded_exchange& one : exchanges_) {
        if (!one.used && !one.timed) {
            result.push_back(one.request);
        }
    }
    return result;
}

void replay_book::use(recorded_exchange& one) {
    one.used = true;
    missing_count_ -= one.timed ? 0U : 1U;
}

} // namespace csi_lab
