#include "lab/pairing.h"

#include <algorithm>
#include <utility>

#include "peers/core_service.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

bool is_unsolicited(const entry& post) {
    return !post.text.empty() && post.text.back() == '\n';
}

bool is_attach(const entry& post) {
    const json::document parsed = json::parse(post.text);
    return parsed.IsObject() && json::find_string(parsed, "type") == "zorvin" &&
           json::find(parsed, "cmd") == nullptr;
}

bool is_same_request(const entry& first, const entry& second) {
    return first.text == second.text && first.method == second.method && first.path == second.path;
}

} // namespace

std::string peer_of(const entry& what) {
    const std::string& name = what.from == "daemon" ? what.to : what.from;
    return name == "core" ? peers::core_name(what.address) : name;
}

std::optional<entry> pairing::request_of(const entry& what) {
    if (what.from == "daemon") {
        add_request(what);
        return what.to == "server" ? take_command(what) : std::nullopt;
    }
    auto request = take_request(what);
    // The daemon ignores the answers to its replies and to unsolicited messages.
    const bool is_executed = !request || request->text.empty() || is_attach(*request);
    if (what.from == "server" && !what.text.empty() && is_executed) {
        command_ = what;
    }
    return request;
}

void pairing::add_request(const entry& what) {
    std::deque<entry>& open = by_peer_[peer_of(what)].open;
    // Without an answer the daemon sends the same request again.
    const bool is_repeated = std::any_of(open.begin(), open.end(), [&](const entry& earlier) {
        return is_same_request(earlier, what);
    });
    if (!is_repeated) {
        open.push_back(what);
    }
}

std::optional<entry> pairing::take_request(const entry& answer) {
    requests& of = by_peer_[peer_of(answer)];
    if (!of.open.empty()) {
        of.answered = of.open.front();
        of.open.pop_front();
    }
    return of.answered; // again, when an answer comes twice
}

std::optional<entry> pairing::take_command(const entry& reply) {
    if (reply.text.empty() || is_unsolicited(reply) || is_attach(reply)) {
        return std::nullopt;
    }
    return std::exchange(command_, std::nullopt);
}

} // namespace csi_lab
