/// The daemon with its peers under a load of commands, and everything that watches it.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "peers/installation.h"
#include "peers/journal.h"
#include "soak/commands.h"
#include "soak/contract_checker.h"
#include "soak/conversation.h"
#include "soak/daemon_process.h"
#include "soak/log_reader.h"
#include "soak/report.h"
#include "soak/resource_monitor.h"
#include "soak/run.h"

namespace csi_soak {

struct load {
    peers::installation_options peers;
    std::string folder;
    std::string label; // in front of the figures about the end
    std::string attach_answer = R"({"cmd":"associate"})";
    std::vector<std::string> environment; // for the daemon, in addition: "NAME=VALUE"
    std::size_t queue_depth = 20;         // commands that the server has ready
    std::set<std::string> left_out;       // kinds of commands that are never sent
};

/// Two Zorvins, four Bots and a fusion daemon.
[[nodiscard]] peers::installation_options usual_installation(std::uint32_t seed);

/// Peers and daemon start with it. For one thread.
class loaded_daemon {
public:
    static constexpr const char* alive_check = "the daemon stays alive";

    /// Throws std::runtime_error when something cannot be started.
    loaded_daemon(const run_options& options, load what, reporter& report);

    /// Waits for the first attach; from then on, the daemon's resources are monitored. False when
    /// the daemon does not attach, which is reported.
    [[nodiscard]] bool wait_for_attach();
    /// Keeps the daemon busy and watches it until `done` returns true. False at the timeout, and
    /// when the daemon has exited, which is reported.
    bool run_until(const std::function<bool()>& done, steady_clock::duration timeout);
    /// Calls `step` over and over. Returns early when the daemon has exited.
    void run_for(steady_clock::duration duration, const std::function<void()>& step);
    /// Sends SIGTERM and checks how the daemon ends; nothing if it has already exited.
    void stop();

    [[nodiscard]] const std::vector<peers::routed_bot>& bots() const { return bots_; }
    [[nodiscard]] conversation_checker& conversation() { return conversation_; }
    [[nodiscard]] peers::installation& installation() { return installation_; }
    [[nodiscard]] log_reader& log() { return log_; }
    [[nodiscard]] daemon_process::resources usage() const { return daemon_.usage(); }
    [[nodiscard]] resource_monitor& resources() { return resources_; }

private:
    peers::journal& checked_journal();
    void fill_queue();
    void check_exit(const std::optional<daemon_process::exit_info>& exit,
                    steady_clock::duration time);

    reporter& report_;
    const load load_;
    const std::vector<peers::routed_bot> bots_;
    conversation_checker conversation_; // before the journal, whose threads call it
    contract_checker contract_;         // the same
    peers::journal journal_;
    peers::installation installation_;
    daemon_process daemon_;
    log_reader log_;
    resource_monitor resources_;
    command_generator commands_;
    bool monitoring_ = false; // not during start-up, when usage still grows
    bool alive_ = true;
};

} // namespace csi_soak
