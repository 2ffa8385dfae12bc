/// Standard input and the terminating signals, waited for together.
#pragma once

#include <optional>
#include <string>

#include "peers/sockets.h"

namespace csi_lab {

/// For one thread. Construct it before any other thread starts: it blocks SIGINT and SIGTERM for
/// its own thread and those that this one starts.
class console {
public:
    console(); ///< Throws std::runtime_error when the system has no descriptor left.

    /// Waits for the next line, given without its end; nothing: a signal came. The end of
    /// standard input is no end: from then on only a signal is waited for.
    [[nodiscard]] std::optional<std::string> next_line();

private:
    [[nodiscard]] std::optional<std::string> take_line();
    void read_input();

    csi_receiver::descriptor signals_;
    std::string buffer_;
    bool open_ = true; ///< Standard input.
};

} // namespace csi_lab
