/// A process that is measured from outside, and the REST server that it alone talks to.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

#include "peers/rest_server.h"

namespace csi_bench {

/// For one thread. Throws std::runtime_error when the process does not do in time what it should.
class subject {
public:
    explicit subject(peers::journal& record)
        : server_(record) {}
    ~subject() { stop(); }
    subject(const subject&) = delete;
    subject& operator=(const subject&) = delete;

    [[nodiscard]] std::string port() const { return std::to_string(server_.port()); }

    /// Runs program and arguments, and waits until it has posted so many times, the attach being
    /// the first. Returns the time from before its start until the attach arrived, in ns.
    double start(std::vector<std::string> arguments, std::size_t posts);
    void stop(); ///< Asks it to end, and waits.

    /// Of all its threads since its start, in ns.
    [[nodiscard]] double cpu_time() const;
    /// One line of the kernel's summary of its memory, in KiB.
    [[nodiscard]] double memory(const std::string& what) const;
    /// Lets it carry out commands, one after the other. Returns the CPU time of each, in ns.
    double serve(std::size_t commands);

private:
    void wait_for_posts(std::size_t count);

    peers::rest_server server_;
    pid_t pid_ = 0;
};

} // namespace csi_bench
