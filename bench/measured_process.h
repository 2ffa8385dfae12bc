/// A child process that is measured from outside, and a REST server that it alone talks to.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

#include "peers/journal.h"
#include "peers/rest_server.h"

namespace csi_bench {

/// For one thread. Functions throw std::runtime_error when the process takes longer than a minute
/// for what it is expected to do.
class measured_process {
public:
    explicit measured_process(peers::journal& journal)
        : server_(journal) {}
    ~measured_process() { stop(); }
    measured_process(const measured_process&) = delete;
    measured_process& operator=(const measured_process&) = delete;

    [[nodiscard]] std::string port() const { return std::to_string(server_.port()); }

    /// Runs the program in the first argument, and waits for that many POSTs, the first of which
    /// must be the attach. Returns the time from the start to the attach, in ns.
    double start(std::vector<std::string> arguments, std::size_t posts);
    /// Sends SIGTERM, and waits for the exit.
    void stop();

    /// CPU time of all its threads since its start, in ns.
    [[nodiscard]] double cpu_time() const;
    /// One entry of /proc/PID/smaps_rollup, in KiB.
    [[nodiscard]] double memory(const std::string& entry) const;
    /// Hands out commands one by one. Returns the CPU time per command, in ns.
    double serve(std::size_t commands);

    /// Waits until the program has asked for a command that many times more.
    void wait_for_polls(std::size_t count);

private:
    /// Of the latest attach.
    [[nodiscard]] std::chrono::steady_clock::time_point attach_time() const;
    void wait_for_posts(std::size_t count);
    void wait_for(const char* method, std::size_t count);

    peers::rest_server server_;
    pid_t pid_ = 0;
};

} // namespace csi_bench
