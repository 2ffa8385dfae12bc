/// The daemon as a child process, and what the system tells of it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <sys/types.h>

#include "soak/report.h"

namespace csi_soak {

/// Blocks SIGCHLD, SIGINT and SIGTERM for the calling thread and those that it starts: before
/// anything else of a soak.
void block_soak_signals();

/// For the main thread. Ends the process with SIGKILL if it still runs at the end.
class soak_daemon {
public:
    struct ending {
        int status; ///< As waitpid gives it.
        double cpu_seconds;
        long peak_kib; ///< Of resident memory.
    };
    struct resources {
        std::size_t descriptors = 0;
        std::size_t threads = 0;
        std::size_t anonymous = 0; ///< Bytes of memory that no file stands behind.
    };

    /// Runs the program with the configuration; its own output goes to files in the folder.
    /// Throws std::runtime_error when it cannot be started.
    soak_daemon(const std::string& program, std::string folder, const std::string& configuration);
    ~soak_daemon();
    soak_daemon(const soak_daemon&) = delete;
    soak_daemon& operator=(const soak_daemon&) = delete;

    void terminate() const; ///< Sends SIGTERM.

    /// Waits for its end; nothing when the bound has passed before. Throws std::runtime_error when
    /// the soak itself is interrupted by a signal.
    [[nodiscard]] std::optional<ending> wait(soak_clock::duration bound);

    [[nodiscard]] resources look() const;
    [[nodiscard]] std::string output() const; ///< What it wrote to its standard output so far.
    [[nodiscard]] std::string errors() const;
    [[nodiscard]] std::string log_path() const { return folder_ + "/csi_receiver.log"; }

private:
    [[nodiscard]] std::optional<ending> reap();

    const std::string folder_;
    pid_t pid_ = -1;
    std::optional<ending> ended_;
};

} // namespace csi_soak
