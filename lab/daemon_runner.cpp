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
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

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

/// How to start the program: with its output to the descriptor, no blocked signal, and in a process
/// group of its own, so that Ctrl-C reaches the lab alone.
class spawn_settings {
public:
    explicit spawn_settings(int output) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO);
        posix_spawnattr_init(&attributes_);
        sigset_t none{};
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    ~spawn_settings() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }
    spawn_settings(const spawn_settings&) = delete;
    spawn_settings& operator=(const spawn_settings&) = delete;

    pid_t spawn(std::string program, std::string argument) const {
        std::array<char*, 3> argv{program.data(), argument.data(), nullptr};
        pid_t pid = 0;
        // Some C libraries do not report what exec refuses.
        const bool has_path = program.find('/') != std::string::npos;
        const int error = has_path && access(program.c_str(), X_OK) != 0
                              ? errno
                              : posix_spawnp(&pid, program.c_str(), &actions_, &attributes_,
                                             argv.data(), environ);
        if (error != 0) {
            throw std::runtime_error(program + ": " + std::generic_category().message(error));
        }
        return pid;
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

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
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe: " + std::generic_category().message(errno));
    }
    output_ = descriptor(ends[0]);
    const descriptor input(ends[1]);
    configuration_path_ = write_temporary_file(configuration_);
    pid_ = spawn_settings(input.get()).spawn(program_, configuration_path_);
    reader_ = std::thread([this] { read_output(); });
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
