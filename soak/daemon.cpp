#include "soak/daemon.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace csi_soak {
namespace {

sigset_t soak_signals() {
    sigset_t result = {};
    sigemptyset(&result);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM}) {
        sigaddset(&result, number);
    }
    return result;
}

std::string content_of(const std::string& path) {
    std::ifstream from(path);
    return {std::istreambuf_iterator<char>(from), {}};
}

std::size_t entries_of(const std::string& directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(directory.c_str()), closedir);
    std::size_t count = 0;
    while (open && readdir(open.get()) != nullptr) {
        ++count;
    }
    return count - std::min<std::size_t>(count, 2); // "." and ".."
}

std::size_t anonymous_bytes(const std::string& path) {
    std::ifstream lines(path); // may fail in the middle, when the process ends
    std::string word;
    std::size_t kib = 0;
    while (lines >> word) {
        if (word == "Anonymous:" && lines >> kib) {
            return kib * 1024;
        }
    }
    return 0;
}

void redirect(const char* path, int to) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, to);
    close(file);
}

} // namespace

void block_soak_signals() {
    const sigset_t blocked = soak_signals();
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

soak_daemon::soak_daemon(const std::string& program, std::string folder,
                         const std::string& configuration)
    : folder_(std::move(folder)) {
    mkdir(folder_.c_str(), 0700);
    const std::string file = folder_ + "/soak.conf";
    std::ofstream(file) << configuration << "log=true\nlog_path=" << folder_ << '\n';
    const std::string output = folder_ + "/output";
    const std::string errors = folder_ + "/errors";
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid_ == 0) {
        const sigset_t unblocked = soak_signals();
        sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
        prctl(PR_SET_PDEATHSIG, SIGKILL); // whatever ends the soak ends the daemon
        redirect(output.c_str(), STDOUT_FILENO);
        redirect(errors.c_str(), STDERR_FILENO);
        if (getppid() == parent) {
            execl(program.c_str(), "csi_receiver", file.c_str(), nullptr);
        }
        _exit(127);
    }
}

soak_daemon::~soak_daemon() {
    if (!ended_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

void soak_daemon::terminate() const {
    kill(pid_, SIGTERM);
}

std::optional<soak_daemon::ending> soak_daemon::reap() {
    int status = 0;
    struct rusage used = {};
    if (!ended_ && wait4(pid_, &status, WNOHANG, &used) == pid_) {
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        ended_ = {status, seconds(used.ru_utime) + seconds(used.ru_stime), used.ru_maxrss};
    }
    return ended_;
}

std::optional<soak_daemon::ending> soak_daemon::wait(soak_clock::duration bound) {
    const sigset_t awaited = soak_signals();
    const soak_clock::time_point end = soak_clock::now() + bound;
    while (!reap()) {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::max(end - soak_clock::now(), soak_clock::duration::zero()));
        timespec time = {};
        time.tv_sec = static_cast<time_t>(left.count() / 1'000'000'000);
        time.tv_nsec = static_cast<long>(left.count() % 1'000'000'000);
        const int number = sigtimedwait(&awaited, nullptr, &time);
        if (number == SIGINT || number == SIGTERM) {
            throw std::runtime_error("interrupted");
        }
        if (soak_clock::now() >= end) {
            return reap();
        }
    }
    return ended_;
}

soak_daemon::resources soak_daemon::look() const {
    const std::string process = "/proc/" + std::to_string(pid_);
    return {entries_of(process + "/fd"), entries_of(process + "/task"),
            anonymous_bytes(process + "/smaps_rollup")};
}

std::string soak_daemon::output() const {
    return content_of(folder_ + "/output");
}

std::string soak_daemon::errors() const {
    return content_of(folder_ + "/errors");
}

} // namespace csi_soak
