/// Engine commands: they are not answered by the client, but forwarded to the engine they name.
#pragma once

#include <string>
#include <vector>

#include "client/client_state.h"
#include "client/routing.h"
#include "platform/json.h"

namespace csi_receiver {

/// Main thread only. Borrows both for its life.
class engine_commands {
public:
    engine_commands(client_state& state, routing_table& routing)
        : state_(state)
        , routing_(routing) {}

    /// Starts or stops the target Bots as the command wants it, forwards the command and returns
    /// the engine's answer, which is not an object when nothing usable came. `text` is the command
    /// as received, `message` the same with identifiers as text, `selected` the Bot of its "bot",
    /// or nullptr. Blocks for 4 s per target and 7 s at most. Once the daemon is shutting down it
    /// begins no further exchange, and the answer is not an object.
    [[nodiscard]] json::document execute(const std::string& text, json::document& message,
                                         bot_record* selected);

private:
    using targets_type = std::vector<bot_record*>;

    [[nodiscard]] json::document forward(const std::string& engine, const std::string& text,
                                         json::document& message, const bot_record* selected,
                                         const targets_type& targets);
    [[nodiscard]] targets_type find_targets(json::document& message, bot_record* selected);
    void start(const std::string& engine, const targets_type& targets);
    void stop(const std::string& engine, const targets_type& targets);

    client_state& state_;
    routing_table& routing_;
};

} // namespace csi_receiver
