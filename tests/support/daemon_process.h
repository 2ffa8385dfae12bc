/// The built daemon as a process of its own.
#pragma once

#include <ctime>

#include <sys/prctl.h>

#include "support/child_process.h"

class daemon_process : public child_process {
public:
    daemon_process(const temporary_directory& directory, std::vector<std::string> arguments)
        : child_process(directory, CSI_RECEIVER_BINARY, words(std::move(arguments)), {}) {}

    /// CPU time that it has taken so far.
    [[nodiscard]] long cpu_ms() const {
        clockid_t clock{};
        timespec used{};
        clock_getcpuclockid(pid, &clock);
        clock_gettime(clock, &used);
        return static_cast<long>(used.tv_sec) * 1000 + used.tv_nsec / 1000000;
    }

    /// Waits for the processes that lead into the background; the one that is left there is
    /// followed from then on. It is neither in this session nor the leader of its own.
    bool follow_into_background() {
        return wait() == 0 && wait_until([this] {
                   std::ifstream children("/proc/self/task/" + std::to_string(getpid()) +
                                          "/children");
                   for (pid_t child = 0; children >> child;) {
                       const pid_t session = getsid(child);
                       if (waitpid(child, nullptr, WNOHANG) == 0 && session != child &&
                           session != getsid(0)) {
                           pid = child;
                       }
                   }
                   return pid != 0;
               });
    }

private:
    static std::vector<std::string> words(std::vector<std::string> arguments) {
        prctl(PR_SET_CHILD_SUBREAPER, 1); // a daemon in the background stays this process's to end
        arguments.insert(arguments.begin(), "path/to/csi_receiver");
        return arguments;
    }
};
