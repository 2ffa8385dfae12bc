/// The daemon's signals, received through a descriptor that its main loop polls.
#pragma once

namespace csi_receiver {

/// Blocks the daemon's signals in the calling thread and returns a descriptor that delivers SIGINT,
/// SIGTERM, SIGPIPE and SIGHUP; below 0 on failure. The caller closes it. To be called on the main
/// thread before any other thread starts.
[[nodiscard]] int create_signal_descriptor();

/// Takes one waiting signal from the descriptor and logs it; true when it asks the daemon to end.
/// Main thread only.
[[nodiscard]] bool read_signal(int fd);

/// Whether a signal that asks the daemon to end waits to be read. Any thread.
[[nodiscard]] bool termination_pending();

} // namespace csi_receiver
