// The floor of the whole process: attaches, polls and answers as the daemon does over the same
// connection, but reads, logs and knows nothing. Arguments: the port; "turns" for a look at the
// signal descriptor every 20 ms, as the daemon must take one, or "sleep" for one wait a poll.
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "bench/bare_handle.h"

namespace {

constexpr std::int64_t poll_interval_ns = 100000000;
constexpr int turn_ms = 20;
constexpr int poll_interval_ms = 100;

// As long as the daemon's.
const char* const attach =
    R"({"type":"zorvin","driver":"ath10k","zorvin":9001,"ssid":"csi-lab","join":true,"chains":4,)"
    R"-("bot_info":[],"version":"v1.0-0-g111a051e591b (built on Nov 21 2026 08:14:45)",)-"
    R"("localCalculationSupport":{"motion2":1,"breathing2":1,"guard":1}})";
const char* const attach_reply = R"({"cmd":"associate","success":true})";
const char* const reply = R"-({"cmd":"version","success":true,)-"
                          R"-("version":"v1.0-0-g111a051e591b (built on Nov 21 2026 08:14:45)"})-";

int open_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
}

std::int64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void serve_commands(csi_bench::bare_handle& server) {
    const timespec pause{0, 20000000};
    while (!server.get().empty()) {
        server.post(reply);
        nanosleep(&pause, nullptr);
    }
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        return 1;
    }
    const bool takes_turns = std::strcmp(argv[2], "turns") == 0;
    pollfd signals{open_signals(), POLLIN, 0};
    curl_global_init(CURL_GLOBAL_ALL);
    csi_bench::bare_handle server(std::strtol(argv[1], nullptr, 10),
                                  "http://127.0.0.1:/v2/zorvins/attach");
    server.post(attach);
    server.set_url("http://127.0.0.1:/v2/zorvins/9001/msg");
    server.post(attach_reply);
    std::int64_t last_poll = 0;
    do {
        const std::int64_t now = now_ns();
        if (!takes_turns || now - last_poll > poll_interval_ns) {
            last_poll = now;
            serve_commands(server);
        }
    } while (poll(&signals, 1, takes_turns ? turn_ms : poll_interval_ms) == 0);
    return 0;
}
