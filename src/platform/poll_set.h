/// The descriptors that a thread waits on together, and what the wait reports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <poll.h>

namespace csi_receiver {

/// Something to read, urgent data, an error or a hang-up. Writable is left out on purpose: a socket
/// is writable nearly always, and the wait would never wait.
constexpr short poll_readable = POLLIN | POLLPRI | POLLERR | POLLHUP;

/// One condition of one descriptor; {-1, POLLERR} for a wait that failed.
struct poll_event {
    std::int32_t fd;
    std::uint32_t event;
};

/// Poll records in the order in which they were added. Belongs to one thread; owns no descriptor.
struct poll_set {
    std::vector<pollfd> records;
};

/// Adds `fd`, or replaces its events if it is there. A descriptor below 1 is silently not added.
void poll_set_add(poll_set& set, int fd, short events);

/// Replaces the events of `fd`: 0, or -1 with errno ENOENT when it is not in the set.
int poll_set_modify(poll_set& set, int fd, short events);

void poll_set_remove(poll_set& set, int fd);

/// Waits at most `timeout_ms` (below 0: without end). Returns one event for each condition that was
/// reported, in the order of the records and of the bits; nothing when the time ran out.
[[nodiscard]] std::vector<poll_event> poll_set_wait(poll_set& set, int timeout_ms);

} // namespace csi_receiver
