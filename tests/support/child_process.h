/// Runs a program in its own process, with its output in a file.
#pragma once

#include <atomic>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/fixtures.h"

class child_process {
public:
    struct options {
        int input = STDIN_FILENO;
        bool with_errors = false;    // standard error goes to the output, too
        void (*prepare)() = nullptr; // runs in the child before the program starts
    };

    /// Runs the file with these words, of which the first is the program's name. Standard output
    /// goes to the file "output" in the folder.
    child_process(const temporary_directory& directory, const char* file,
                  std::vector<std::string> words, const options& use)
        : directory_(directory) {
        std::vector<char*> argv;
        argv.reserve(words.size() + 1);
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        const std::string output = directory.path + "/output";
        prctl(PR_SET_CHILD_SUBREAPER, 1); // adopts and so ends a daemon in the background
        pid = fork();
        if (pid == 0) {
            const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(fd, STDOUT_FILENO);
            if (use.with_errors) {
                dup2(fd, STDERR_FILENO);
            }
            close(fd);
            if (use.input != STDIN_FILENO) {
                dup2(use.input, STDIN_FILENO);
            }
            if (use.prepare != nullptr) {
                use.prepare();
            }
            execv(file, argv.data());
            _exit(127);
        }
    }
    ~child_process() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    [[nodiscard]] std::string output() const { return directory_.read("output"); }
    void signal(int number) const { kill(pid, number); }

    /// The exit status, or the negative number of the signal that ended it; -1000 when it still
    /// runs after the bound.
    int wait(std::chrono::milliseconds bound = std::chrono::seconds(20)) {
        int status = 0;
        if (!wait_until([&] { return waitpid(pid, &status, WNOHANG) == pid; }, bound)) {
            return -1000;
        }
        pid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

protected:
    std::atomic<pid_t> pid{0}; // a peer's thread may send a signal

private:
    const temporary_directory& directory_;
};
