/// The process as the system sees it: the background, the kernel, a thread's priority.
#pragma once

#include <pthread.h>

namespace csi_receiver {

/// Opens those of the descriptors 0 to 2 that are closed on /dev/null. Otherwise they would be
/// handed out again: the signal descriptor would be 0, which no poll set takes, and a stray message
/// would end up in a socket.
void fill_standard_descriptors();

/// Detaches from the terminal and returns in the final child only; the others exit with 0, or with
/// 1 when the system refuses a process. Closes all descriptors but, with
/// `keep_standard_descriptors`, 0 to 2; otherwise these are opened on /dev/null. Before any thread
/// is started.
void daemonise(bool keep_standard_descriptors);

/// Whether the kernel's build description speaks of preemption.
[[nodiscard]] bool is_preemptive_kernel();

/// The same for a given description.
[[nodiscard]] bool tells_preemption(const char* kernel_version);

/// Gives a thread the first-in-first-out policy with the priority, clamped to what the system has.
/// Returns the system call's result: 0, or an error number.
int set_realtime_priority(pthread_t thread, int priority);

/// The thread's priority, or the system call's error number.
[[nodiscard]] int get_priority(pthread_t thread);

} // namespace csi_receiver
