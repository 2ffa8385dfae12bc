#include "lab/daemon_runner.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace csi_lab {
namespace {

using csi_receiver::descriptor;

/// Writes the text to a new file and returns its path.
std::string write_temporary_file(const std::string& text) {
    const char* const folder = std::getenv("TMPDIR");
    std::string path = std::string(folder == nullptr ? "/tmp" : folder) + "/csi_lab_XXXXXX";
    const descriptor file(mkostemp(path.data(), O_CLOEXEC));
    const bool written = file.is_open() && write(file.get(), text.data(), text.size()) ==
                                               static_cast<ssize_t>(text.size());
    if (!written) {
        throw std::runtime_error(path + ": " + std::generic_category().message(errno));
    }
    return path;
}

/// What the child process does before it becomes the program. Allocates no memory: another thread
/// may have held the allocator's lock during the fork. Writes errno to `failed_exec`.
[[noreturn]] void execute(char* const* argv, int output, int failed_exec, pid_t parent) {
    setpgid(0, 0); // Ctrl-C reaches the lab alone
    sigset_t none{};
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    // The daemon must not outlive the lab. The signal comes when the thread that forked ends.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) {
        execvp(argv[0], argv);
    }
    const int error = errno;
    _exit(write(failed_exec, &error, sizeof error) == sizeof error ? 127 : 126);
}

struct pipe_ends {
    descriptor output;
    descriptor input;
};

pipe_ends make_pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe: " + std::generic_category().message(errno));
    }
    return {descriptor(ends[0]), descriptor(ends[1])};
}

/// Starts the program with its output to the descriptor. Throws std::runtime_error when it cannot
/// be executed.
pid_t spawn(const std::string& program, const std::string& argument, int output) {
    std::array<std::string, 2> words{program, argument};
    std::array<char*, 3> argv{words[0].data(), words[1].data(), nullptr};
    pipe_ends failed_exec = make_pipe();
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        execute(argv.data(), output, failed_exec.input.get(), parent);
    }
    int error = errno;
    failed_exec.input.reset();
    if (pid < 0) {
        throw std::runtime_error("fork: " + std::generic_category().message(error));
    }
    // It ends with exec, which closes it.
    if (read(failed_exec.output.get(), &error, sizeof error) == sizeof error) {
        waitpid(pid, nullptr, 0);
        throw std::runtime_error(program + ": " + std::generic_category().message(error));
    }
    return pid;
}

std::string describe_end(int status) {
    return WIFEXITED(status) ? "ended with status " + std::to_string(WEXITSTATUS(status))
                             : "was ended by signal " + std::to_string(WTERMSIG(status));
}

/// Waits for the process, and kills it when the time is up.
std::string wait_for_end(pid_t pid) {
    constexpr int tries = 1500;
    int status = 0;
    for (int count = 0; count < tries; ++count) {
        if (waitpid(pid, &status, WNOHANG) == pid) {
            return describe_end(status);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return "did not end and was killed";
}

} // namespace

daemon_runner::daemon_runner(std::string program, std::string configuration, line_handler on_line)
    : program_(std::move(program))
    , configuration_(std::move(configuration))
    , on_line_(std::move(on_line)) {}

daemon_runner::~daemon_runner() {
    static_cast<void>(stop());
}

bool daemon_runner::start() {
    const std::lock_guard<std::mutex> lock(mutex_);
    siginfo_t ended{};
    if (pid_ != 0 &&
        waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        ended.si_pid == 0) {
        return false;
    }
    static_cast<void>(clean_up());
    pipe_ends output = make_pipe();
    configuration_path_ = write_temporary_file(configuration_);
    pid_ = spawn(program_, configuration_path_, output.input.get());
    output_ = std::move(output.output);
    running_ = true;
    reader_ = std::thread([this] {
        read_output();
        running_ = false;
    });
    return true;
}

std::string daemon_runner::stop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return clean_up();
}

std::string daemon_runner::clean_up() {
    std::string result;
    if (pid_ != 0) {
        kill(pid_, SIGTERM);
        result = wait_for_end(pid_);
        reader_.join();
    }
    pid_ = 0;
    output_.reset();
    unlink(configuration_path_.c_str());
    return result;
}

void daemon_runner::read_output() {
    std::string line;
    std::array<char, 4096> text{};
    while (true) {
        const ssize_t count = read(output_.get(), text.data(), text.size());
        if (count <= 0) {
            return;
        }
        line.append(text.data(), static_cast<std::size_t>(count));
        for (std::size_t end = 0; (end = line.find('\n')) != std::string::npos;) {
            on_line_(line.substr(0, end));
            line.erase(0, end + 1);
        }
    }
}

} // namespace csi_lab
