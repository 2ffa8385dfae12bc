/// The process: going into the background, its descriptors, the kernel, thread priorities.
#pragma once

#include <pthread.h>

namespace csi_receiver {

/// Opens /dev/null at each of the descriptors 0 to 2 that is closed. The system would hand them out
/// again otherwise: the signal descriptor would be 0, which no poll set takes, and stray output
/// would go to a socket.
void fill_standard_descriptors();

/// Detaches from the terminal and returns in the final child only; the other processes exit with 0,
/// or with 1 when the system refuses a process. Closes all descriptors; 0 to 2 stay open with
/// `keep_standard_descriptors` and are opened on /dev/null without. To be called before any thread
/// is started.
void daemonise(bool keep_standard_descriptors);

/// Whether the kernel's build description says that it is preemptive.
[[nodiscard]] bool is_preemptive_kernel();

/// The same for a given description.
[[nodiscard]] bool mentions_preemption(const char* kernel_version);

/// Gives a thread the policy SCHED_FIFO with the priority, clamped to the system's range. Returns 0
/// or an error number.
int set_realtime_priority(pthread_t thread, int priority);

/// The thread's priority, or an error number.
[[nodiscard]] int get_priority(pthread_t thread);

} // namespace csi_receiver
