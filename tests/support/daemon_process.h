/// Runs the built daemon in its own process and looks at it from outside.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <map>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include "support/child_process.h"

/// Makes the system refuse a call with EPERM to this process and to the programs that it starts.
template<unsigned number>
void refuse_call() {
    sock_filter filter[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, number},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EPERM},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

class daemon_process : public child_process {
public:
    /// The words begin with the program's name.
    daemon_process(const temporary_directory& directory, std::vector<std::string> words,
                   void (*prepare)() = nullptr)
        : child_process(directory, CSI_RECEIVER_BINARY, std::move(words),
                        {STDIN_FILENO, false, prepare}) {}

    /// CPU time that it has used so far.
    [[nodiscard]] long cpu_ms() const {
        clockid_t clock{};
        timespec used{};
        clock_getcpuclockid(pid, &clock);
        clock_gettime(clock, &used);
        return static_cast<long>(used.tv_sec) * 1000 + used.tv_nsec / 1000000;
    }

    /// The path of its file in /proc.
    [[nodiscard]] std::string proc(const std::string& file) const {
        return "/proc/" + std::to_string(pid) + "/" + file;
    }
    /// How many descriptors of each kind it closes in programs that it starts: "socket", or the
    /// path of a file.
    [[nodiscard]] std::map<std::string, int> closed_on_exec() const {
        std::map<std::string, int> counts;
        for (const auto& file : std::filesystem::directory_iterator(proc("fdinfo"))) {
            std::ifstream info(file.path());
            std::string word; // "pos:", its value, "flags:"
            unsigned flags = 0;
            if (info >> word >> word >> word >> std::oct >> flags && (flags & O_CLOEXEC) != 0) {
                word = std::filesystem::read_symlink(proc("fd" / file.path().filename()));
                ++counts[word.rfind("socket:", 0) == 0 ? "socket" : word];
            }
        }
        return counts;
    }

    /// Waits until the processes that lead into the background have ended, and follows the one that
    /// is left there. It is neither in this session nor the leader of its own.
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
    /// Waits until all processes in the background have ended; the highest exit status that the
    /// system kept: none is kept of the last process if it ends before its parent.
    static int wait_for_background() {
        int highest = 0;
        wait_until([&highest] {
            int status = 0;
            const pid_t ended = waitpid(-1, &status, WNOHANG);
            highest = std::max(highest, WEXITSTATUS(status));
            return ended < 0;
        });
        return highest;
    }
};
