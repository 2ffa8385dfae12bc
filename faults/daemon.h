/// The daemon as a child process with a fault in it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <sys/types.h>

#include "faults/cases.h"
#include "faults/page.h"

namespace csi_faults {

/// Blocks the signals that the daemon's owner waits for. Call it before starting any thread.
void block_signals();

/// Whether SIGINT or SIGTERM has arrived.
[[nodiscard]] bool interrupted();

struct daemon_files {
    std::string program; // csi_receiver
    std::string library; // to load into it
    std::string folder;  // for its configuration, log and output; exists and is empty
};

/// For one thread. Kills the process if it still runs at the end.
class faulty_daemon {
public:
    struct ending {
        int status = 0; // as waitpid returns it
        double cpu_seconds = 0;
    };

    /// Without a case, lists all calls in the file `record`. Throws std::runtime_error when the
    /// process cannot be started.
    faulty_daemon(daemon_files files, const std::string& configuration,
                  const std::optional<fault_case>& fault);
    ~faulty_daemon();
    faulty_daemon(const faulty_daemon&) = delete;
    faulty_daemon& operator=(const faulty_daemon&) = delete;

    void terminate() const; // sends SIGTERM

    /// Waits for its end; empty when the time is up.
    [[nodiscard]] std::optional<ending> wait(std::chrono::milliseconds timeout);

    [[nodiscard]] std::size_t descriptors() const;
    [[nodiscard]] std::uint32_t calls() const { return page_->calls; }
    [[nodiscard]] bool fault_fired() const;
    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string log() const;
    [[nodiscard]] std::string record() const { return files_.folder + "/record"; }

private:
    [[nodiscard]] std::string path(const char* name) const { return files_.folder + "/" + name; }
    void prepare_files(const std::string& configuration) const;
    void map_page();
    [[noreturn]] void run_daemon(const std::optional<fault_case>& fault) const;

    const daemon_files files_;
    fault_page* page_ = nullptr;
    pid_t pid_ = -1;
    std::optional<ending> ending_;
};

} // namespace csi_faults
