/// The server's commands: what each message asks for, and the answer.
#pragma once

#include <string>
#include <string_view>

#include "client/client_state.h"
#include "client/engine_commands.h"
#include "client/pacing.h"
#include "client/routing.h"
#include "client/scanner.h"
#include "daemon/configuration.h"
#include "platform/json.h"

namespace csi_receiver {

/// Main thread only. Borrows all that it is given for its life.
class dispatcher {
public:
    dispatcher(client_state& state, pacing& pace, routing_table& routing, engine_commands& engines,
               scanner& scans, configuration& settings)
        : state_(state)
        , pacing_(pace)
        , routing_(routing)
        , engine_commands_(engines)
        , scanner_(scans)
        , settings_(settings) {}

    /// Handles one message. `reply` is what to answer; it stays empty when there is nothing to
    /// answer. False when the server asks to disconnect.
    [[nodiscard]] bool parse_msg(const std::string& text, std::string& reply);

private:
    enum class outcome { reply, no_reply, disconnect };
    using command_function = outcome (dispatcher::*)(json::document& message, bot_record* bot);
    struct command {
        std::string_view word;
        command_function execute;
    };
    static const command commands[];

    [[nodiscard]] bot_record* select_bot(json::document& message);
    outcome execute(json::document& message, bot_record* bot);
    outcome start_bot(json::document& message, bot_record* bot);
    outcome stop_bot(json::document& message, bot_record* bot);
    outcome accept(json::document& message, bot_record* bot);
    outcome set_rate(json::document& message, bot_record* bot);
    outcome request_scan(json::document& message, bot_record* bot);
    outcome report_bot_info(json::document& message, bot_record* bot);
    outcome set_poll_interval(json::document& message, bot_record* bot);
    outcome disconnect(json::document& message, bot_record* bot);
    outcome report_version(json::document& message, bot_record* bot);

    client_state& state_;
    pacing& pacing_;
    routing_table& routing_;
    engine_commands& engine_commands_;
    scanner& scanner_;
    configuration& settings_;
};

} // namespace csi_receiver
