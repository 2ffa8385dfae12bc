/// The daemon's signals, received through a descriptor that its main loop polls.
#pragma once

namespace csi_receiver {

/// Blocks the daemon's signals in the calling thread and returns a non-blocking descriptor that
/// delivers SIGINT, SIGTERM, SIGPIPE and SIGHUP, which the caller closes; below 0 on failure. To be
/// called on the main thread before any other thread starts.
[[nodiscard]] int create_signal_descriptor();

/// Reads one pending signal from the descriptor and logs it; true when it asks the daemon to end.
/// Main thread only.
[[nodiscard]] bool read_signal(int fd);

/// Whether a signal that asks the daemon to end is pending. Any thread.
[[nodiscard]] bool termination_pending();

} // namespace csi_receiver
