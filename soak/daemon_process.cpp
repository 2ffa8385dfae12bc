#include "soak/daemon_process.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/descriptor.h"

namespace csi_soak {
namespace {

sigset_t awaited_signals() {
    sigset_t result{};
    sigemptyset(&result);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM}) {
        sigaddset(&result, number);
    }
    return result;
}

std::string read_file(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// 0 when the process has exited.
std::size_t count_entries(const std::string& directory) {
    std::error_code error;
    std::size_t count = 0;
    std::filesystem::directory_iterator entry(directory, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        ++count;
        entry.increment(error);
    }
    return count;
}

std::size_t anonymous_bytes(const std::string& smaps) {
    std::ifstream file(smaps); // reading fails midway if the process exits
    std::size_t kib = 0;
    for (std::string word; file >> word;) {
        if (word == "Anonymous:" && file >> kib) {
            return kib * 1024;
        }
    }
    return 0;
}

timespec to_timespec(steady_clock::duration time) {
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    const std::chrono::nanoseconds rest = time - whole;
    timespec result{};
    result.tv_sec = static_cast<time_t>(whole.count());
    result.tv_nsec = static_cast<long>(rest.count());
    return result;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

void redirect(const char* path, int to) {
    const csi_receiver::descriptor file(open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600));
    dup2(file.get(), to);
}

struct paths {
    std::string program;
    std::string configuration;
    std::string output;
    std::string errors;
};

/// Ends with nullptr. Those added come first: the first of two variables with one name counts.
std::vector<char*> with_own_environment(const std::vector<std::string>& added) {
    std::vector<char*> result;
    result.reserve(added.size());
    for (const std::string& variable : added) {
        result.push_back(const_cast<char*>(variable.c_str()));
    }
    for (char** own = environ; *own != nullptr; ++own) {
        result.push_back(*own);
    }
    result.push_back(nullptr);
    return result;
}

/// For the child process. Allocates no memory: another thread may have held the allocator's lock
/// during the fork.
[[noreturn]] void execute(const paths& of, char* const* environment, pid_t parent) {
    const sigset_t unblocked = awaited_signals();
    sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGKILL); // the daemon must not outlive the soak
    redirect(of.output.c_str(), STDOUT_FILENO);
    redirect(of.errors.c_str(), STDERR_FILENO);
    if (getppid() == parent) {
        execle(of.program.c_str(), "csi_receiver", of.configuration.c_str(), nullptr, environment);
    }
    _exit(127);
}

} // namespace

void block_signals() {
    const sigset_t blocked = awaited_signals();
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

daemon_process::daemon_process(const std::string& program, std::string folder,
                               const std::string& configuration,
                               const std::vector<std::string>& environment)
    : folder_(std::move(folder)) {
    std::filesystem::create_directory(folder_);
    const paths files{program, folder_ + "/soak.conf", folder_ + "/output", folder_ + "/errors"};
    std::ofstream(files.configuration) << configuration << "log=true\nlog_path=" << folder_ << '\n';
    std::vector<char*> variables = with_own_environment(environment);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid_ == 0) {
        execute(files, variables.data(), parent);
    }
}

daemon_process::~daemon_process() {
    if (!exit_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

void daemon_process::terminate() const {
    kill(pid_, SIGTERM);
}

std::optional<daemon_process::exit_info> daemon_process::reap() {
    int status = 0;
    struct rusage used {};
    if (!exit_ && wait4(pid_, &status, WNOHANG, &used) == pid_) {
        exit_ = {status, seconds(used.ru_utime) + seconds(used.ru_stime), used.ru_maxrss};
    }
    return exit_;
}

std::optional<daemon_process::exit_info> daemon_process::wait(steady_clock::duration timeout) {
    const sigset_t awaited = awaited_signals();
    const steady_clock::time_point deadline = steady_clock::now() + timeout;
    while (!reap()) {
        const timespec left =
            to_timespec(std::max(deadline - steady_clock::now(), steady_clock::duration::zero()));
        const int number = sigtimedwait(&awaited, nullptr, &left);
        if (number == SIGINT || number == SIGTERM) {
            throw std::runtime_error("interrupted");
        }
        if (steady_clock::now() >= deadline) {
            return reap();
        }
    }
    return exit_;
}

daemon_process::resources daemon_process::usage() const {
    const std::string process = "/proc/" + std::to_string(pid_);
    return {count_entries(process + "/fd"), count_entries(process + "/task"),
            anonymous_bytes(process + "/smaps_rollup")};
}

std::string daemon_process::output() const {
    return read_file(folder_ + "/output");
}

std::string daemon_process::errors() const {
    return read_file(folder_ + "/errors");
}

} // namespace csi_soak
