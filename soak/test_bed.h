/// A daemon with peers that one case can put into the state it needs.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "peers/installation.h"
#include "peers/journal.h"
#include "soak/daemon_process.h"
#include "soak/log_reader.h"
#include "soak/report.h"
#include "soak/run.h"

namespace csi_soak {

/// The peers of a bed.
struct bed_layout {
    unsigned zorvins = 2;
    unsigned bots = 4;
    bool slow_start = false; // leaves time to silence the core services while the daemon starts
    const char* silent = nullptr; // from the beginning; as peers::installation takes it
};

/// Core services that the daemon's configuration names, with one Bot each, but that do not run.
struct absent_core_services {
    unsigned count;
};

/// Starts with the peers, if any, and the daemon running. For one thread.
class test_bed {
public:
    using condition = std::function<bool()>;

    /// With a fusion daemon. `name` names the folder for the daemon's files. Throws
    /// std::runtime_error when something cannot be started.
    test_bed(const run_options& options, const std::string& name, reporter& report,
             const bed_layout& layout = {});
    /// No peers at all.
    test_bed(const run_options& options, const std::string& name, reporter& report,
             absent_core_services absent);

    /// Waits until the condition holds, and returns how long that took. Throws std::runtime_error
    /// when it does not come true within five minutes or the daemon exits.
    steady_clock::duration wait_for(const condition& holds);
    /// Waits until the daemon has attached and reported its first Bot.
    void wait_for_attach();

    /// Queues the command at the server, and waits until the daemon has received it.
    void send_command(const char* command);
    /// Waits until the scan has begun.
    void start_scan();
    /// Makes peers silent; `who` as peers::installation takes it.
    void silence(const char* who);
    /// Sends SIGTERM, and returns how long the daemon takes to exit.
    [[nodiscard]] steady_clock::duration terminate();

    /// Queues the command at the server, and waits until the daemon sends a request with this text
    /// to `to`.
    void queue_and_await(const char* command, const char* to, const char* request);
    /// Makes peers silent, and waits until the daemon sends a request with this text to `to`.
    void silence_and_await(const char* who, const char* to, const char* request);

    /// How many messages with this text have gone from one peer to the other.
    [[nodiscard]] std::size_t count(const char* from, const char* to, const char* text) const;
    [[nodiscard]] bool recorded(const char* from, const char* to, const char* text) const {
        return count(from, to, text) > 0;
    }
    [[nodiscard]] const peers::journal& journal() const { return journal_; }
    [[nodiscard]] const log_reader::counters& log() const { return log_.counts(); }
    [[nodiscard]] peers::installation& installation() { return *installation_; }

private:
    void act_and_await(const std::function<void()>& act, const char* to, const char* request);

    reporter& report_;
    peers::journal journal_;
    std::unique_ptr<peers::installation> installation_; // may be nullptr
    daemon_process daemon_;
    log_reader log_;
};

} // namespace csi_soak
