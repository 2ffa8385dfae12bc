/// The daemon's one object: it starts up, talks to the REST server and carries out its commands.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "client/routing.h"
#include "daemon/configuration.h"
#include "http/http_client.h"
#include "platform/json.h"
#include "platform/poll_set.h"
#include "platform/timer.h"

namespace csi_receiver {

class log_redirection;

/// Made, run once and destroyed on the main thread; all its operations belong to that thread where
/// they do not say otherwise.
class zorvin_client {
public:
    /// The rate of sounding until the server sets another one.
    static constexpr std::int32_t default_sounding_rate = 10;

    /// How long a scan waits from one look at the Bots to the next.
    static constexpr int default_scan_period_ms = 1000;

    /// Borrows both for its life. Throws when the system refuses a resource.
    zorvin_client(int signal_descriptor, configuration& settings,
                  int scan_period_ms = default_scan_period_ms);

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

    /// Carries out the server's commands until it has none; false when the session is lost.
    bool poll(const std::string& url);

    /// Sends an unsolicited message, whose answer is ignored; nothing when ending. Any thread.
    void send(const std::string& text);

    /// Tells the server which Bots were found.
    void send_status();

    [[nodiscard]] std::string build_attach();

    /// Carries out one message of the server's. `reply` is what to answer, if anything. False when
    /// the server asks to disconnect.
    bool parse_msg(const std::string& text, std::string& reply);

    /// Begins a station scan, unless one is in progress: all Bots that do not sound are made to.
    void scan_start();

    /// One look at which Bots the core services see; false when the scan has ended. Called by the
    /// scan timer on threads of the system's, one at a time.
    bool scan_check();

    /// Filled by run.
    [[nodiscard]] routing_table& routing() { return routing_; }

private:
    // Both on the monotonic clock, in whose beginning they start: the first poll and the first tick
    // are due at once.
    struct loop_times {
        std::chrono::nanoseconds last_poll{0};
        std::chrono::nanoseconds last_tick{0};
    };
    enum class outcome { reply, no_reply, disconnect };
    using command_function = outcome (zorvin_client::*)(json::document& message, bot_record* bot);
    struct command {
        std::string_view word;
        command_function carry_out;
    };
    static const command commands[];

    // life: zorvin_client.cpp
    void choose_log();
    bool start_up();
    bool wait_for_core_services();
    bool check_interfaces(const zorvin_entry& zorvin);
    void save_csi(const zorvin_entry& zorvin, const std::string& filename);
    void main_loop();
    bool serve_polls(loop_times& times, std::chrono::nanoseconds now);
    void serve_flags(loop_times& times, std::chrono::nanoseconds now);
    void wait_for_signals(poll_set& polls, int wait_ms);
    void keep_log_small();
    [[nodiscard]] int back_off_ms() const;

    // session: session.cpp
    bool build_message_url();
    [[nodiscard]] json::value build_bot_info(json::allocator& memory);
    void log_sent(const std::string& text) const;
    [[nodiscard]] std::string server_and_port() const;

    // dispatch: dispatch.cpp
    [[nodiscard]] bot_record* select_bot(json::document& message);
    outcome carry_out_command(json::document& message, bot_record* bot);
    outcome start_bot(json::document& message, bot_record* bot);
    outcome stop_bot(json::document& message, bot_record* bot);
    outcome accept(json::document& message, bot_record* bot);
    outcome set_rate(json::document& message, bot_record* bot);
    outcome request_scan(json::document& message, bot_record* bot);
    outcome tell_bot_info(json::document& message, bot_record* bot);
    outcome set_poll_interval(json::document& message, bot_record* bot);
    outcome disconnect(json::document& message, bot_record* bot);
    outcome tell_version(json::document& message, bot_record* bot);

    // engine commands: engines.cpp
    json::document carry_out_engine_command(const std::string& text, json::document& message,
                                            bot_record* bot);
    [[nodiscard]] std::vector<bot_record*> find_targets(json::document& message, bot_record* bot);
    void start_engine(const std::string& engine, const std::vector<bot_record*>& targets);
    void stop_engine(const std::string& engine, const std::vector<bot_record*>& targets);
    json::document ask_fusion(const std::string& text, json::document& message,
                              const bot_record* bot, const std::vector<bot_record*>& targets);
    json::document ask_local_engine(const std::string& text, const json::document& message,
                                    const std::vector<bot_record*>& targets);

    // scan: scan.cpp; all but is_ending belong to scan_check and its thread
    [[nodiscard]] bool is_ending() const;
    void look_for_bots(const zorvin_entry& zorvin);
    void end_scan();
    void stop_temporary_sounding(bot_record& bot);
    [[nodiscard]] std::size_t scan_list_size();
    [[nodiscard]] std::string build_scan_report();

    // Members that do not say otherwise are the main thread's, or do not change after start-up.
    std::atomic<std::int32_t> sounding_rate_{default_sounding_rate}; // scan_check reads it
    std::atomic<bool> status_update_{false};
    curl_http::http_client http_; // any thread
    configuration& settings_;
    std::atomic<bool> scan_request_{false};
    std::atomic<bool> quiet_{false};
    std::atomic<bool> scan_in_progress_{false};
    int scan_countdown_ = 0;                 // scan_check's while a scan is in progress
    std::mutex lists_mutex_;                 // for the two lists; never held across a request
    std::vector<std::string> scan_list_;     // uuids found by the latest scan, in that order
    std::vector<std::string> reported_list_; // uuids last put into a "bot_info"
    routing_table routing_;                  // the Bots' flags: any thread
    threading::timer scan_timer_;
    std::atomic<bool> stop_{false};
    std::string server_;
    bool is_v3_ = false;
    std::string message_url_;
    std::string uuid_;
    int signal_descriptor_;
    bool fusion_;
    std::int32_t poll_interval_ms_ = 100;
    log_redirection* log_ = nullptr; // while run lasts, if the log goes to a file

    // of the interface that does the sensing, as its core service reported them
    std::string driver_name_;
    std::string ssid_;
    std::int32_t chains_ = 0;
};

} // namespace csi_receiver
