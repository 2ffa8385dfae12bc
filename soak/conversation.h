/// Follows the conversation of daemon and REST server in a soak, and checks every message in it.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "peers/installation.h"
#include "peers/journal.h"
#include "soak/commands.h"
#include "soak/report.h"

namespace csi_soak {

/// Matches replies with commands. Any thread may call any function.
class conversation_checker {
public:
    struct counters {
        std::size_t commands = 0; // handed out, including the answers to attaches
        std::size_t replies = 0;
        std::size_t excused = 0; // commands that a fault of the server may have lost
        std::size_t lost = 0;    // commands without a reply of their own
        std::size_t lost_unexcused = 0;
        std::size_t attaches = 0;
        std::size_t disconnects = 0;
        std::size_t scan_reports = 0;
        std::size_t status_messages = 0;
        std::size_t engine_errors = 0; // replies for an engine whose peer was failing
        steady_clock::duration longest_answer{0};
        std::string slowest_kind;
        bool attached = false; // no "disconnect" since the latest attach
    };

    /// The Bots are in the order of the daemon's routing. The daemon replies to `attach_answer`, an
    /// object, by adding "success":true.
    conversation_checker(reporter& report, std::vector<peers::routed_bot> bots,
                         std::string attach_answer);

    /// Expects the command. Call it before queueing the command at the server.
    void plan(test_command command);
    /// Takes every message that the journal records.
    void observe(const peers::message& message);

    /// Between these two, commands that are handed out or have no reply yet may be lost.
    void begin_excusing();
    void end_excusing();
    /// From now on, unexcused losses are only counted: the caller judges them.
    void leave_losses_to_caller();
    /// Between these two, engines of the peer may fail to answer.
    void begin_peer_fault(const std::string& peer);
    void end_peer_fault(const std::string& peer);

    [[nodiscard]] counters counts() const;
    /// How many replies came to each kind of command.
    [[nodiscard]] std::map<std::string, std::size_t> replies_by_kind() const;
    /// Whether the latest command still needs a reply, and must not be lost.
    [[nodiscard]] bool awaiting_reply() const;

private:
    struct open_command {
        test_command command;
        steady_clock::time_point since;
        bool excused;
    };

    void handle_command(const std::string& text);
    void handle_attach(const std::string& text);
    void handle_unsolicited(const std::string& text);
    void handle_reply(const std::string& text);
    [[nodiscard]] std::optional<test_command> take_planned(const std::string& text);
    void close_open_command();
    void check_reply(const open_command& answered, const std::string& reply);
    void count_reply(const open_command& answered);
    [[nodiscard]] bool is_expected(const test_command& command, const std::string& reply) const;
    [[nodiscard]] bool is_valid(variable_part part, const std::string& text) const;
    [[nodiscard]] bool is_scan_report(const std::string& text) const;
    [[nodiscard]] bool is_bot_list(const std::string& text) const;
    [[nodiscard]] bool peer_failed_since(const std::string& peer,
                                         steady_clock::time_point since) const;

    reporter& report_;
    const std::vector<peers::routed_bot> bots_;
    const std::string attach_answer_;

    mutable std::mutex mutex_; // guards all below
    std::deque<test_command> planned_;
    std::optional<open_command> open_; // the daemon executes one command at a time
    std::map<std::string, std::size_t> replies_;
    std::map<std::string, steady_clock::time_point> fault_ends_; // by peer; max() while it lasts
    std::set<int> possible_rates_{10}; // several after losing a command that sets the rate
    std::string version_;
    bool excusing_ = false;
    bool report_losses_ = true;
    counters counts_;
};

} // namespace csi_soak
