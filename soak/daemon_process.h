/// The daemon as a child process, and the system resources that it uses.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "soak/report.h"

namespace csi_soak {

/// Blocks SIGCHLD, SIGINT and SIGTERM in the calling thread and in the threads that it starts.
/// Call it before anything else of a soak.
void block_signals();

/// For the main thread. The destructor kills the process if it is still running.
class daemon_process {
public:
    struct exit_info {
        int wait_status; // as waitpid returns it
        double cpu_seconds;
        long peak_kib; // of resident memory
    };
    struct resources {
        std::size_t descriptors = 0;
        std::size_t threads = 0;
        std::size_t anonymous = 0; // bytes of memory not backed by a file
    };

    /// Runs the program with the configuration. Log, standard output and standard error go to files
    /// in the folder, which is created. `environment` are variables "NAME=VALUE" in addition to
    /// this process's own. Throws std::runtime_error when the system refuses either.
    daemon_process(const std::string& program, std::string folder, const std::string& configuration,
                   const std::vector<std::string>& environment = {});
    ~daemon_process();
    daemon_process(const daemon_process&) = delete;
    daemon_process& operator=(const daemon_process&) = delete;

    /// Sends SIGTERM.
    void terminate() const;

    /// Waits for the process to exit; nullopt when it has not within the timeout. Throws
    /// std::runtime_error when SIGINT or SIGTERM interrupts the soak itself.
    [[nodiscard]] std::optional<exit_info> wait(steady_clock::duration timeout);

    /// What the process uses now; all zero once it has exited.
    [[nodiscard]] resources usage() const;
    /// What it has written to its standard output so far.
    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string errors() const;
    [[nodiscard]] std::string log_path() const { return folder_ + "/csi_receiver.log"; }

private:
    [[nodiscard]] std::optional<exit_info> reap();

    const std::string folder_;
    pid_t pid_ = -1;
    std::optional<exit_info> exit_;
};

} // namespace csi_soak
