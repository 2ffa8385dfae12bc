#include "daemon/process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace csi_receiver {
namespace {

/// Returns in the child only.
void fork_and_leave_parent() {
    const pid_t child = fork();
    if (child != 0) {
        _exit(child < 0 ? 1 : 0);
    }
}

/// False when the kernel does not have the call.
bool close_range_from(int first) {
#ifdef SYS_close_range
    return syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0;
#else
    static_cast<void>(first);
    return false;
#endif
}

/// Closes the open ones only: the limit may be a thousand million.
bool close_listed_from(int first) {
    const auto close_directory = [](DIR* open) { closedir(open); };
    const std::unique_ptr<DIR, decltype(close_directory)> directory(opendir("/proc/self/fd"),
                                                                    close_directory);
    if (!directory) {
        return false;
    }
    std::vector<int> descriptors;
    while (const dirent* entry = readdir(directory.get())) {
        const int fd = static_cast<int>(std::strtol(entry->d_name, nullptr, 10));
        const bool is_number = entry->d_name[0] != '.';
        if (is_number && fd >= first && fd != dirfd(directory.get())) {
            descriptors.push_back(fd);
        }
    }
    for (const int fd : descriptors) {
        close(fd);
    }
    return true;
}

void close_descriptors_from(int first) {
    if (close_range_from(first) || close_listed_from(first)) {
        return;
    }
    for (long fd = sysconf(_SC_OPEN_MAX); fd >= first; --fd) {
        close(static_cast<int>(fd));
    }
}

} // namespace

void fill_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        const bool closed = fcntl(fd, F_GETFD) < 0 && errno == EBADF;
        if (closed && open("/dev/null", O_RDWR) < 0) {
            open("/", O_RDONLY); // no /dev/null: any descriptor will do
        }
    }
}

void daemonise(bool keep_standard_descriptors) {
    fork_and_leave_parent();
    if (setsid() < 0) {
        _exit(1);
    }
    std::signal(SIGCHLD, SIG_IGN);
    fork_and_leave_parent();
    umask(0);
    if (chdir("/") != 0) {
        _exit(1);
    }
    if (keep_standard_descriptors) {
        close_descriptors_from(STDERR_FILENO + 1);
    } else {
        close_descriptors_from(STDIN_FILENO);
        fill_standard_descriptors();
    }
}

bool mentions_preemption(const char* kernel_version) {
    return std::strstr(kernel_version, "PREEMPT") != nullptr;
}

bool is_preemptive_kernel() {
    utsname kernel{};
    return uname(&kernel) == 0 && mentions_preemption(kernel.version);
}

int set_realtime_priority(pthread_t thread, int priority) {
    sched_param parameters{};
    parameters.sched_priority = std::clamp(priority, sched_get_priority_min(SCHED_FIFO),
                                           sched_get_priority_max(SCHED_FIFO));
    return pthread_setschedparam(thread, SCHED_FIFO, &parameters);
}

int get_priority(pthread_t thread) {
    sched_param parameters{};
    int policy = 0;
    const int error = pthread_getschedparam(thread, &policy, &parameters);
    return error == 0 ? parameters.sched_priority : error;
}

} // namespace csi_receiver
