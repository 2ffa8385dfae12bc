/// A set of descriptors to wait on, and what the wait reports.
#pragma once

#include <cstdint>
#include <vector>

#include <poll.h>

namespace csi_receiver {

/// Data to read, urgent data, an error or a hang-up. POLLOUT is left out on purpose: a socket is
/// nearly always writable, and the wait would return at once.
constexpr short poll_readable = POLLIN | POLLPRI | POLLERR | POLLHUP;

/// One condition of one descriptor; {-1, POLLERR} for a wait that failed.
struct poll_event {
    std::int32_t fd;
    std::uint32_t event;
};

/// Poll records in the order in which they were added. Belongs to one thread; does not own the
/// descriptors.
struct poll_set {
    std::vector<pollfd> records;
};

/// Adds `fd`, or replaces its events if it is there. A descriptor below 1 is silently not added.
void poll_set_add(poll_set& set, int fd, short events);

/// Replaces the events of `fd`: 0, or -1 with errno ENOENT when it is not in the set.
int poll_set_modify(poll_set& set, int fd, short events);

void poll_set_remove(poll_set& set, int fd);

/// Waits for `timeout_ms` at most, without a bound when below 0. Returns one event per reported
/// condition, in the order of the records and of the bits; none when the time ran out.
[[nodiscard]] std::vector<poll_event> poll_set_wait(poll_set& set, int timeout_ms);

} // namespace csi_receiver
