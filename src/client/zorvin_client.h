/// The daemon's one object: starts up, runs the main loop, and ends.
#pragma once

#include <functional>
#include <string>

#include "client/client_state.h"
#include "client/dispatcher.h"
#include "client/engine_commands.h"
#include "client/messages.h"
#include "client/pacing.h"
#include "client/rest_session.h"
#include "client/routing.h"
#include "client/scanner.h"
#include "daemon/configuration.h"
#include "platform/poll_set.h"

namespace csi_receiver {

class log_redirection;

/// The system's monotonic clock.
[[nodiscard]] pacing::time monotonic_now();

/// Made, run once and destroyed on the main thread; all its operations belong to that thread where
/// they do not say otherwise.
class zorvin_client {
public:
    using clock_function = std::function<pacing::time()>;

    static constexpr std::int32_t default_sounding_rate = client_state::default_sounding_rate;
    static constexpr int default_scan_period_ms = scanner::default_period_ms;

    /// Borrows the signal descriptor and the settings for its life. Throws when the system refuses
    /// a resource.
    zorvin_client(int signal_descriptor, configuration& settings,
                  int scan_period_ms = default_scan_period_ms, clock_function now = monotonic_now);

    /// Ends a scan, which waits for the one exchange that it may have in flight (at most 4 s with a
    /// core service, 20 s with the server), and gives the interfaces back to the core services, at
    /// most 4 s for each.
    ~zorvin_client();
    zorvin_client(const zorvin_client&) = delete;
    zorvin_client& operator=(const zorvin_client&) = delete;

    /// Returns when a terminating signal was read, or when start-up failed, which has been logged.
    /// Standard output and standard error have their own buffers back then, also after an
    /// exception.
    void run();

    /// Attaches to the REST server; true when attached. Blocks for two POSTs and a command at most.
    bool connect();

    /// Executes the server's commands until it has none; false when the session is lost.
    bool poll(const std::string& url);

    /// Sends an unsolicited message, whose answer is ignored; nothing when shutting down. Any
    /// thread.
    void send(const std::string& text) { session_.send(text); }

    /// Reports to the server which Bots were found.
    void send_status();

    /// The attach message. The Bots in it count as reported.
    [[nodiscard]] std::string build_attach();

    /// Handles one message of the server's. `reply` is what to answer, if anything. False when the
    /// server asks to disconnect.
    bool parse_msg(const std::string& text, std::string& reply);

    /// Begins a station scan, unless one is in progress.
    void scan_start() { scanner_.start(); }

    /// One check of the scan; false when it has ended. The scan timer's threads.
    bool scan_check() { return scanner_.check(); }

    /// Filled by run.
    [[nodiscard]] routing_table& routing() { return routing_; }

private:
    // start-up, in its order
    [[nodiscard]] bool start_up();
    void choose_log();
    [[nodiscard]] bool read_identity();
    [[nodiscard]] bool read_routing();
    [[nodiscard]] bool wait_for_core_services();
    [[nodiscard]] bool check_interfaces(const zorvin_entry& zorvin);
    [[nodiscard]] bool choose_api();
    void save_csi();

    void main_loop();
    [[nodiscard]] bool attach_or_poll(bool attached, pacing::time now);
    void serve_requests(pacing::time now);
    void wait_for_signals(poll_set& polls, int wait_ms);
    [[nodiscard]] bool sleep_until_signal(int wait_ms) const;
    void rotate_log_if_grown();

    configuration& settings_;
    const int signal_descriptor_;
    const clock_function now_;
    log_redirection* log_ = nullptr; // while run lasts, if the log goes to a file
    const bool fusion_;
    zorvin_identity identity_;  // fixed by start-up
    sensing_interface sensing_; // fixed by start-up
    routing_table routing_;     // the Bots' flags: any thread
    client_state state_;
    pacing pacing_;
    // Each part uses those above it.
    rest_session session_;
    scanner scanner_;
    engine_commands engine_commands_;
    dispatcher dispatcher_;
};

} // namespace csi_receiver
