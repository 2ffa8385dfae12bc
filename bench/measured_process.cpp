#include "bench/measured_process.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace csi_bench {
namespace {

constexpr std::chrono::seconds timeout(60);

template<class list>
std::size_t count_requests(const list& requests, const char* method) {
    return static_cast<std::size_t>(
        std::count_if(requests.begin(), requests.end(),
                      [method](const auto& request) { return request.method == method; }));
}

} // namespace

double measured_process::start(std::vector<std::string> arguments, std::size_t posts) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const std::size_t before = server_.posts();
    const auto begin = std::chrono::steady_clock::now();
    pid_ = fork();
    if (pid_ == 0) {
        dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDOUT_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    wait_for_posts(before + posts);
    return std::chrono::duration<double, std::nano>(attach_time() - begin).count();
}

std::chrono::steady_clock::time_point measured_process::attach_time() const {
    const auto requests = server_.requests();
    const auto attach = std::find_if(requests.rbegin(), requests.rend(), [](const auto& request) {
        return request.path == "/v2/zorvins/attach";
    });
    if (attach == requests.rend()) {
        throw std::runtime_error("the program posts, but does not attach");
    }
    return attach->when;
}

void measured_process::stop() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
}

double measured_process::cpu_time() const {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &used) != 0) {
        throw std::runtime_error("no CPU time: the process has exited");
    }
    return static_cast<double>(used.tv_sec) * 1e9 + static_cast<double>(used.tv_nsec);
}

double measured_process::memory(const std::string& entry) const {
    std::ifstream summary("/proc/" + std::to_string(pid_) + "/smaps_rollup");
    for (std::string word; summary >> word;) {
        if (double size = 0; word == entry + ":" && summary >> size) {
            return size;
        }
    }
    throw std::runtime_error("no " + entry + " in smaps_rollup");
}

double measured_process::serve(std::size_t commands) {
    const std::size_t posts = server_.posts();
    const double before = cpu_time();
    for (std::size_t command = 0; command < commands; ++command) {
        server_.queue(R"({"cmd":"version"})");
    }
    wait_for_posts(posts + commands);
    return (cpu_time() - before) / static_cast<double>(commands);
}

void measured_process::wait_for_polls(std::size_t count) {
    wait_for("GET", count_requests(server_.requests(), "GET") + count);
}

void measured_process::wait_for_posts(std::size_t count) {
    wait_for("POST", count);
}

void measured_process::wait_for(const char* method, std::size_t count) {
    // The server keeps enough requests for a whole benchmark.
    const auto enough = [method, count](const auto& requests) {
        return count_requests(requests, method) >= count;
    };
    if (!server_.wait_for(enough, timeout)) {
        throw std::runtime_error("fewer than " + std::to_string(count) + " requests with " +
                                 method);
    }
}

} // namespace csi_bench
