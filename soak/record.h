/// Follows the conversation of a soak as it happens: matches replies with commands, judges both.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "peers/journal.h"
#include "soak/commands.h"
#include "soak/report.h"

namespace csi_soak {

/// Every function may be called from any thread.
class soak_record {
public:
    struct counts {
        std::size_t handed_out = 0; ///< Commands, with the answers to attaches.
        std::size_t replies = 0;
        std::size_t excused = 0; ///< Commands handed out in a fault of the server,
        std::size_t lost = 0;    ///< and of these the ones without a reply of their own.
        std::size_t cut = 0;     ///< Replies to what was left of a body that was cut.
        std::size_t attaches = 0;
        std::size_t disconnects = 0;
        std::size_t scan_reports = 0;
        std::size_t status_messages = 0;
        std::size_t engine_errors = 0; ///< Replies of an engine whose peer was in a fault.
        soak_clock::duration longest_answer{0};
        std::string longest_kind;
        bool attached = false; ///< No "disconnect" since the latest attach.
    };

    soak_record(soak_report& report, std::vector<soak_bot> bots, std::string attach_answer);

    /// Before the command is queued at the server.
    void plan(soak_command command);
    /// The journal's observer.
    void see(const peers::message& what);

    /// From here on a command that is handed out, or was and has no reply yet, may be lost.
    void begin_excuse();
    void end_excuse();
    /// Between these two the peer's engines may fail to answer.
    void begin_peer_fault(const std::string& peer);
    void end_peer_fault(const std::string& peer);

    [[nodiscard]] counts count() const;
    /// Kinds of commands with a reply, and how many replies came.
    [[nodiscard]] std::map<std::string, std::size_t> replies_by_kind() const;
    /// The command handed out last still wants its reply, and no fault excuses it.
    [[nodiscard]] bool owes_reply() const;

private:
    struct open_command {
        soak_command command;
        soak_clock::time_point since;
        bool excused;
    };

    void hand_out(const std::string& text);
    void close_open();
    void take_attach(const std::string& text);
    void take_unasked(const std::string& text);
    void take_reply(const std::string& text);
    [[nodiscard]] bool is_right(const soak_command& command, const std::string& reply) const;
    [[nodiscard]] bool fills(soak_gap gap, const std::string& text) const;
    [[nodiscard]] bool is_bot_list(const std::string& text, const std::string& begin,
                                   const std::string& end) const;
    [[nodiscard]] bool peer_failed_since(const std::string& peer,
                                         soak_clock::time_point since) const;
    void note_answer(const open_command& answered);

    soak_report& report_;
    const std::vector<soak_bot> bots_;
    const std::string attach_answer_;
    mutable std::mutex mutex_; ///< For all below.
    std::deque<soak_command> planned_;
    std::optional<open_command> open_; ///< The daemon carries out one at a time.
    std::map<std::string, std::size_t> replies_;
    std::map<std::string, soak_clock::time_point> fault_ends_; ///< The far future: it lasts.
    std::set<int> possible_rates_{10}; ///< Several when a command that sets it may be lost.
    std::string version_;
    bool excusing_ = false;
    counts counts_;
};

} // namespace csi_soak
