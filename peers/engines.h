/// Motion engines that detect nothing: which engine runs for which Bot, and the replies to
/// commands.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/json.h"

namespace peers {

struct running_engine {
    std::string type;
    std::string bot; // uuid
};

/// Plays the engines of one service. May be called from any thread.
class engines {
public:
    explicit engines(std::set<std::string> types);

    /// Executes an engine command, an object, and turns it into its reply: adds "success" and
    /// either "state" or "reason". The Bots are in "bot" or "bots", each a uuid or an object with a
    /// "uuid".
    void handle(json::document& command);

    [[nodiscard]] std::vector<running_engine> running() const;

private:
    using type_and_bot = std::pair<std::string, std::string>;

    /// Returns the reason for a failure; empty on success.
    [[nodiscard]] std::string execute(const std::string& type, const json::value& command,
                                      const std::vector<std::string>& bots);
    /// Whether the engine runs for one of the Bots, or for any Bot if none is given.
    [[nodiscard]] bool runs(const std::string& type, const std::vector<std::string>& bots) const;

    const std::set<std::string> types_;
    mutable std::mutex mutex_; // guards running_
    std::set<type_and_bot> running_;
};

} // namespace peers
