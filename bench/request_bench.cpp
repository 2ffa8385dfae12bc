// What a request costs compared with its system calls alone, or with libcurl alone.
#include <array>
#include <string>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>

#include "bench/bare_handle.h"
#include "bench/peers.h"
#include "core/bot_commands.h"
#include "daemon/signals.h"
#include "http/http_client.h"
#include "platform/descriptor.h"

namespace {

const std::string url = "http://127.0.0.1:/v2/zorvins/9001/msg";
const std::string reply = R"({"cmd":"version","success":true,"version":"v1.0-0-g111a051e591b"})";
const std::string sounding = R"({"cmd":"sounding","ifname":"wlan0","uuid":"101",)"
                             R"("hwaddr":"02:00:00:00:00:65","quiet":false,"rate":10})";

sockaddr_in local_address(std::uint16_t port, std::uint32_t address) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(address);
    return result;
}

ssize_t bare_exchange(const std::string& text, std::array<char, 4096>& answer) {
    const sockaddr_in any = local_address(0, INADDR_ANY);
    const sockaddr_in peer = local_address(14310, INADDR_LOOPBACK);
    const csi_receiver::descriptor local(
        socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int fd = local.get();
    pollfd readable{fd, POLLIN, 0};
    if (bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0 &&
        connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0 &&
        send(fd, text.data(), text.size(), MSG_NOSIGNAL) > 0 && poll(&readable, 1, 2000) == 1) {
        return recv(fd, answer.data(), answer.size(), 0);
    }
    return -1;
}

void bare_udp(benchmark::State& state) {
    const csi_bench::udp_peer peer;
    std::array<char, 4096> answer{};
    while (state.KeepRunning()) {
        if (bare_exchange(sounding, answer) < 1) {
            state.SkipWithError("no answer");
        }
    }
}

/// One request to a core service, from building its JSON to reading "success" in the answer.
void core_request(benchmark::State& state) {
    const csi_bench::udp_peer peer;
    const csi_receiver::zorvin_entry zorvin("127.0.0.1");
    const csi_receiver::bot_record bot("02:00:00:00:00:65", "101", "wlan0", zorvin);
    while (state.KeepRunning()) {
        if (!csi_receiver::core_sounding(zorvin, bot, 10, false)) {
            state.SkipWithError("no answer");
        }
    }
}

template<class handle, class request>
void run_http(benchmark::State& state, handle& server, const request& ask) {
    while (state.KeepRunning()) {
        if (ask(server) != csi_bench::http_peer::body) {
            state.SkipWithError("wrong answer");
        }
    }
}

template<class request>
void bare_http(benchmark::State& state, const request& ask) {
    const csi_bench::http_peer peer;
    csi_bench::bare_handle handle(peer.port(), url);
    run_http(state, handle, ask);
}

template<class request>
void client_http(benchmark::State& state, const request& ask) {
    const csi_bench::http_peer peer;
    curl_http::http_client client(peer.port());
    client.set_shutdown_test(
        csi_receiver::termination_pending); // the daemon pays for this call, too
    run_http(state, client, ask);
}

void bare_get(benchmark::State& state) {
    bare_http(state, [](auto& server) -> const std::string& { return server.get(); });
}

void bare_post(benchmark::State& state) {
    bare_http(state, [](auto& server) -> const std::string& { return server.post(reply); });
}

void http_get(benchmark::State& state) {
    client_http(state, [](auto& server) { return server.get(url); });
}

void http_post(benchmark::State& state) {
    client_http(state, [](auto& server) { return server.post_json(url, reply); });
}

} // namespace

BENCHMARK(bare_udp)->UseRealTime();
BENCHMARK(core_request)->UseRealTime();
BENCHMARK(bare_get)->UseRealTime();
BENCHMARK(http_get)->UseRealTime();
BENCHMARK(bare_post)->UseRealTime();
BENCHMARK(http_post)->UseRealTime();
