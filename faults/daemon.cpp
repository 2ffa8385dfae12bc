#include "faults/daemon.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace csi_faults {
namespace {

namespace fs = std::filesystem;

constexpr const char* strace_prefix = "strace/";

sigset_t awaited_signals() {
    sigset_t result{};
    sigemptyset(&result);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaddset(&result, number);
    }
    return result;
}

std::string content_of(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void redirect(const std::string& path, int to) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, to);
    close(file);
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

bool is_traced(const std::optional<fault_case>& fault) {
    return fault && fault->call.rfind(strace_prefix, 0) == 0;
}

std::vector<std::string> strace_command(const fault_case& fault, const std::string& output) {
    const std::string call = fault.call.substr(std::string(strace_prefix).size());
    return {"strace",
            "-D", // the daemon stays this process's child
            "-f",
            "-o",
            output,
            "-e",
            "trace=" + call,
            "-e",
            "inject=" + call + ":error=" + fault.error +
                ":when=" + std::to_string(fault.occurrence) + (fault.from_then_on ? "+" : "")};
}

} // namespace

void block_signals() {
    const sigset_t blocked = awaited_signals();
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

bool interrupted() {
    sigset_t pending{};
    sigpending(&pending);
    return sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1;
}

faulty_daemon::faulty_daemon(daemon_files files, const std::string& configuration,
                             const std::optional<fault_case>& fault)
    : files_(std::move(files)) {
    prepare_files(configuration);
    map_page();
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid_ == 0) {
        const sigset_t unblocked = awaited_signals();
        sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent) {
            run_daemon(fault);
        }
        _exit(127);
    }
}

/// Four logs of earlier runs, so that the daemon rotates all of them when it starts.
void faulty_daemon::prepare_files(const std::string& configuration) const {
    std::ofstream(path("conf")) << configuration << "log=true\nlog_path=" << files_.folder << '\n';
    for (const char* const end : {"", ".1", ".2", ".3"}) {
        std::ofstream(path("csi_receiver.log") + end) << "an earlier run\n";
    }
    std::ofstream(path("page")) << std::string(sizeof(fault_page), '\0');
}

void faulty_daemon::map_page() {
    const int file = open(path("page").c_str(), O_RDWR | O_CLOEXEC);
    void* const mapped =
        mmap(nullptr, sizeof(fault_page), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (mapped == MAP_FAILED) {
        throw std::runtime_error("mmap failed");
    }
    page_ = static_cast<fault_page*>(mapped);
}

void faulty_daemon::run_daemon(const std::optional<fault_case>& fault) const {
    std::vector<std::string> command;
    if (is_traced(fault)) {
        command = strace_command(*fault, path("strace"));
    } else {
        setenv("LD_PRELOAD", files_.library.c_str(), 1);
        setenv(page_variable, path("page").c_str(), 1);
        if (fault) {
            setenv(case_variable, fault->variable().c_str(), 1);
        } else {
            setenv(record_variable, record().c_str(), 1);
        }
    }
    command.insert(command.end(), {files_.program, path("conf")});
    closefrom(STDERR_FILENO + 1); // the descriptors of csi_faults
    redirect(path("output"), STDOUT_FILENO);
    redirect(path("errors"), STDERR_FILENO);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

faulty_daemon::~faulty_daemon() {
    if (!ending_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    munmap(page_, sizeof(fault_page));
}

void faulty_daemon::terminate() const {
    kill(pid_, SIGTERM);
}

std::optional<faulty_daemon::ending> faulty_daemon::wait(std::chrono::milliseconds timeout) {
    constexpr std::chrono::milliseconds poll_period{5};
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!ending_) {
        int status = 0;
        rusage used{};
        if (wait4(pid_, &status, WNOHANG, &used) == pid_) {
            ending_ = {status, seconds(used.ru_utime) + seconds(used.ru_stime)};
        } else if (std::chrono::steady_clock::now() >= end || interrupted()) {
            break;
        } else {
            std::this_thread::sleep_for(poll_period);
        }
    }
    return ending_;
}

std::size_t faulty_daemon::descriptors() const {
    std::error_code gone;
    const fs::directory_iterator entries("/proc/" + std::to_string(pid_) + "/fd", gone);
    return gone ? 0 : static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

bool faulty_daemon::fault_fired() const {
    return page_->fired != 0 || content_of(path("strace")).find("(INJECTED)") != std::string::npos;
}

std::string faulty_daemon::output() const {
    return content_of(path("output"));
}

std::string faulty_daemon::log() const {
    return content_of(path("csi_receiver.log"));
}

} // namespace csi_faults
