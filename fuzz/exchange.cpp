// What a core service sends, over real sockets: through the readers into the attach message, and
// through a whole scan. Each line is a datagram, and each request gets the next one. After "+" or
// "!", the same request gets the next line, too, and what follows "!" comes from a stranger. An
// empty line stands for no datagram.
#include <map>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "client/scanner.h"
#include "core/interface_commands.h"
#include "core/requests.h"
#include "harness.h"
#include "platform/socket.h"
#include "platform/udp_client.h"

using namespace csi_receiver;

namespace csi_receiver {

// The daemon's own `ask`, under the name that replaced.h gives it.
std::optional<std::string> ask_over_udp(const std::string& address, std::uint16_t port,
                                        const std::string& text, const attempt_timeouts& timeouts);

} // namespace csi_receiver

namespace {

int bound_socket(const char* address) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    assert(bind_address(fd, address, 0));
    return fd;
}

const int core = bound_socket("127.0.0.1");
const int stranger = bound_socket("127.0.0.2");
std::vector<std::pair<int, std::string>>
    datagrams; // what answers the request under way, and whence

std::string exchange(std::istringstream& lines, const std::string& request) {
    assert(!fuzz::end_expected); // the reply before should have ended the daemon
    datagrams.clear();
    std::vector<std::string> sent; // by the core service
    bool last = false;
    while (!last) {
        std::string line;
        if (!std::getline(lines, line)) {
            line = "{}";
        }
        last = line.empty() || (line[0] != '+' && line[0] != '!');
        const bool forged = !last && line[0] == '!';
        if (!line.empty()) {
            datagrams.emplace_back(forged ? stranger : core, line.substr(last ? 0 : 1));
        }
        if (!line.empty() && !forged) {
            sent.push_back(datagrams.back().second);
        }
    }
    const int timeout = sent.empty() ? 0 : 2000;
    const auto reply = ask_over_udp("127.0.0.1", local_port(core), request, {timeout, timeout});
    // An empty datagram is none, and then the request is repeated once.
    const bool repeated = sent.size() > 1 && sent[0].empty();
    assert(reply ==
           (sent.empty() ? "" : sent[repeated ? 1 : 0]).substr(0, udp_client::receive_buffer_size));
    fuzz::end_expected = !fuzz::is_valid_reply(request, *reply);
    return *reply;
}

} // namespace

/// Only the daemon's request goes through here. It is answered before the daemon begins to wait.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the system's are reserved
extern "C" ssize_t send(int fd, const void* bytes, std::size_t length, int flags) {
    const ssize_t count = syscall(SYS_sendto, fd, bytes, length, flags, nullptr, 0);
    std::vector<char> request(length + 1);
    std::string address;
    std::uint16_t port = 0;
    assert(recv_from(core, request, address, &port) == count);
    for (const auto& [from, text] : datagrams) {
        send_text_to(from, text, address, port, 0);
    }
    return count;
}

void fuzz::run(const std::string& input) {
    std::istringstream lines(input);
    std::map<std::string, int> soundings; // requests to start a Bot less those to stop it
    answer = [&](auto, const std::string& text) {
        const json::document request = json::parse(text);
        if (json::find_string(request, "cmd") == "sounding") {
            soundings[std::string(*json::find_string(request, "uuid"))] +=
                json::find_int(request, "rate") == 0 ? -1 : 1;
        }
        return exchange(lines, text);
    };
    static client_state state;
    static client_state ended;
    ended.stop = true;
    static rest_session session("127.0.0.1", 1, ended); // sends nothing
    const zorvin_identity identity{"9001", false};
    routing_table table;
    table.add_routing("101:127.0.0.1:wlan0:0A0000000101,102:127.0.0.2:wlan1:0A0000000102");
    static_cast<void>(core_ping("127.0.0.1"));
    static_cast<void>(core_get_interfaces("127.0.0.1"));
    add_interfaces(table.zorvins().front());
    const interface_info info = core_interface_info("127.0.0.1", "wlan0");

    scanner scan(state, table, session, identity, 3600 * 1000); // checked here, not by the timer
    scan.start();
    for (int checks = 1; scan.check(); ++checks) {
        assert(checks < 10);
    }
    assert(log.str().find("Scan complete\n") != std::string::npos);
    assert((soundings == std::map<std::string, int>{{"101", 0}, {"102", 0}}));
    const bot_list found = scan.take_found();
    const json::document attach = json::parse(
        build_attach(identity, {info.driver_name, info.ssid, info.antennas}, found, "v9", true));
    assert(attach.IsObject() && json::find_string(attach, "ssid") == info.ssid);
    assert(json::find_int(attach, "chains") == info.antennas);
    assert(json::find(attach, "bot_info")->Size() == found.size());
}
