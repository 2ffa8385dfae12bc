/// Waits for standard input and for SIGINT and SIGTERM at once.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "peers/sockets.h"
#include "platform/descriptor.h"

namespace csi_lab {

/// For one thread. Construct it before any other thread starts: it blocks SIGINT and SIGTERM in
/// its own thread and in the threads that this one starts.
class console {
public:
    /// Throws std::runtime_error when the process has no descriptor left.
    console();

    /// Waits for the next line and returns it without its line end; nullopt when a signal arrived.
    /// After the end of standard input it waits for a signal only.
    [[nodiscard]] std::optional<std::string> next_line();

    /// Waits until the event is awake, or the time is up. False when a signal arrived.
    [[nodiscard]] bool wait(const peers::waker& event, std::chrono::milliseconds time);

    /// Readable when a signal has arrived.
    [[nodiscard]] int signals() const { return signals_.get(); }

private:
    [[nodiscard]] std::optional<std::string> take_line();
    void read_input();

    csi_receiver::descriptor signals_;
    std::string buffer_;
    bool input_open_ = true;
};

} // namespace csi_lab
