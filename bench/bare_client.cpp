// The floor of the whole process: attaches, polls and replies over the same connection and with the
// same bytes as the daemon, and logs the same lines, but does not look into a command. Arguments:
// the server's port; "turns" to check for signals every 20 ms, as the daemon has to, or "sleep" to
// wait once per poll; and the path of its log.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <curl/curl.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "bench/bare_handle.h"
#include "bench/bare_log.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds poll_interval(100);
constexpr std::chrono::milliseconds turn(20);
constexpr std::chrono::milliseconds command_pause(20);

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

/// In one write. There is nothing to be done about a failure.
void write_line(int log, const std::string& text) {
    const std::string line = csi_bench::format_log_line(text);
    static_cast<void>(!write(log, line.data(), line.size()));
}

void serve_commands(csi_bench::bare_handle& server, int log) {
    for (;;) {
        const std::string command = server.get();
        if (command.empty()) {
            return;
        }
        write_line(log, "zorvin_client::parse_msg receives: " + command);
        server.post(reply);
        write_line(log, std::string("[ 127.0.0.1 ] <-- ") + reply);
        std::this_thread::sleep_for(command_pause);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 1;
    }
    const int log = open(argv[3], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool takes_turns = std::strcmp(argv[2], "turns") == 0;
    const auto wait_ms = static_cast<int>((takes_turns ? turn : poll_interval).count());
    pollfd signals{open_signals(), POLLIN, 0};
    curl_global_init(CURL_GLOBAL_ALL);
    csi_bench::bare_handle server(std::strtol(argv[1], nullptr, 10),
                                  "http://127.0.0.1:/v2/zorvins/attach");
    server.post(attach);
    server.set_url("http://127.0.0.1:/v2/zorvins/9001/msg");
    server.post(attach_reply);
    steady_clock::time_point last_poll;
    do {
        const steady_clock::time_point now = steady_clock::now();
        if (!takes_turns || now - last_poll > poll_interval) {
            last_poll = now;
            serve_commands(server, log);
        }
    } while (poll(&signals, 1, wait_ms) == 0);
    return 0;
}
