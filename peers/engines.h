/// Motion engines without the motion: which engine runs for which Bot, and the answers to that.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/json.h"

namespace peers {

/// Plays the engines of one service. May be called from any thread.
class engines {
public:
    struct run {
        std::string type;
        std::string bot;
    };

    explicit engines(std::set<std::string> types);

    /// Turns an engine command, an object, into its answer: adds "success" and, as it fits,
    /// "state" or "reason". Bots are named by "bot" or "bots", each a uuid or an object with one.
    void answer(json::document& command);

    [[nodiscard]] std::vector<run> running() const;

private:
    using key = std::pair<std::string, std::string>; ///< Type and Bot.

    /// Empty when the command was carried out, else the reason why not.
    std::string carry_out(const std::string& type, const json::value& command);
    [[nodiscard]] bool any_runs(const std::string& type, const std::vector<std::string>& of) const;

    const std::set<std::string> types_;
    mutable std::mutex mutex_;
    std::set<key> running_;
};

/// Makes {"success":false,"reason":…} of the reason.
[[nodiscard]] std::string refusal(const std::string& reason);

} // namespace peers
