/// Runs the daemon, and passes its output on line by line.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include <sys/types.h>

#include "platform/descriptor.h"

namespace csi_lab {

/// May be called from any thread but the one that the lines come on.
class daemon_runner {
public:
    using line_handler = std::function<void(const std::string&)>;

    /// Does not start it. The handler runs on a thread of the runner.
    daemon_runner(std::string program, std::string configuration, line_handler on_line);
    /// Ends the daemon.
    ~daemon_runner();
    daemon_runner(const daemon_runner&) = delete;
    daemon_runner& operator=(const daemon_runner&) = delete;

    /// False when it runs already. Throws std::runtime_error when the program cannot be started.
    bool start();
    /// Sends SIGTERM and waits until the daemon has ended, for up to 15 s; after that it kills it.
    /// Returns how it ended: "ended with status 0". Empty when it was not started.
    std::string stop();

    /// Whether it runs, as far as its output tells: false soon after its end.
    [[nodiscard]] bool running() const { return running_; }

private:
    std::string clean_up();
    void read_output();

    const std::string program_;
    const std::string configuration_; // the text of its file
    const line_handler on_line_;
    std::mutex mutex_; // held by start and stop
    std::string configuration_path_;
    pid_t pid_ = 0;
    std::atomic<bool> running_{false};
    csi_receiver::descriptor output_;
    std::thread reader_;
};

} // namespace csi_lab
