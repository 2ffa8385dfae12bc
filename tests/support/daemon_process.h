/// The built daemon as a process of its own, with its output in a file.
#pragma once

#include <csignal>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/fixtures.h"

class daemon_process {
public:
    /// Runs the daemon with these arguments in the folder; its output goes to "output" there.
    daemon_process(const temporary_directory& directory, std::vector<std::string> arguments)
        : directory_(directory) {
        prctl(PR_SET_CHILD_SUBREAPER, 1); // a daemon in the background stays this process's to end
        arguments.insert(arguments.begin(), "path/to/csi_receiver");
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const std::string output = directory.path + "/output";
        pid_ = fork();
        if (pid_ == 0) {
            const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(fd, STDOUT_FILENO);
            close(fd);
            execv(CSI_RECEIVER_BINARY, argv.data());
            _exit(127);
        }
    }
    ~daemon_process() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    daemon_process(const daemon_process&) = delete;
    daemon_process& operator=(const daemon_process&) = delete;

    [[nodiscard]] std::string output() const { return directory_.read("output"); }
    /// CPU time that it has taken so far.
    [[nodiscard]] long cpu_ms() const {
        clockid_t clock{};
        timespec used{};
        clock_getcpuclockid(pid_, &clock);
        clock_gettime(clock, &used);
        return static_cast<long>(used.tv_sec) * 1000 + used.tv_nsec / 1000000;
    }
    void signal(int number) const { kill(pid_, number); }

    /// The exit status; the number of the signal, negative, that ended it; -1000 when the bound
    /// passes and it still runs.
    int wait(std::chrono::milliseconds bound = std::chrono::seconds(20)) {
        int status = 0;
        if (!wait_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, bound)) {
            return -1000;
        }
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
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
                           pid_ = child;
                       }
                   }
                   return pid_ != 0;
               });
    }

private:
    const temporary_directory& directory_;
    pid_t pid_ = 0;
};
