/// A client that runs in this process, and the lab's peers around it.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "client/zorvin_client.h"
#include "peers/core_service.h"
#include "peers/rest_server.h"
#include "support/fixtures.h"

constexpr std::chrono::seconds bound{20};

using texts = std::vector<std::string>;

/// A client that runs on a thread, and the signals that it reads.
class running_client {
public:
    using clock_function = csi_receiver::zorvin_client::clock_function;

    explicit running_client(
        csi_receiver::configuration settings,
        int scan_period_ms = csi_receiver::zorvin_client::default_scan_period_ms,
        clock_function clock = csi_receiver::monotonic_now)
        : settings_(std::move(settings)) {
        EXPECT_EQ(pipe2(signals_, O_NONBLOCK | O_CLOEXEC), 0);
        thread_ = std::thread([this, scan_period_ms, clock = std::move(clock)] {
            client_.emplace(signals_[0], settings_, scan_period_ms, clock);
            client_->run();
            client_.reset();
            ended_ = true;
        });
    }
    ~running_client() {
        signal(SIGTERM);
        join();
        close(signals_[0]);
        close(signals_[1]);
    }
    running_client(const running_client&) = delete;
    running_client& operator=(const running_client&) = delete;

    void signal(int number) {
        signalfd_siginfo record{};
        record.ssi_signo = static_cast<std::uint32_t>(number);
        EXPECT_EQ(write(signals_[1], &record, sizeof record), 128);
    }
    void join() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    [[nodiscard]] bool ended() const { return ended_; }
    /// To be used while the clock holds the client's thread.
    [[nodiscard]] csi_receiver::zorvin_client& client() { return *client_; }

private:
    csi_receiver::configuration settings_;
    std::optional<csi_receiver::zorvin_client> client_;
    std::atomic<bool> ended_{false};
    int signals_[2] = {-1, -1};
    std::thread thread_;
};

struct client : testing::Test {
    client() { settings["http_port"] = std::to_string(server.port()); }

    /// Waits for so many requests that the function is true for.
    template<class function>
    [[nodiscard]] bool sees(std::ptrdiff_t count, function is_one) {
        return server.wait_for(
            [&](const auto& all) { return std::count_if(all.begin(), all.end(), is_one) >= count; },
            bound);
    }
    [[nodiscard]] bool sees_attaches(std::size_t count) {
        return sees(static_cast<std::ptrdiff_t>(count), [](const auto& one) {
            return one.body.find("localCalculation") != std::string::npos;
        });
    }
    [[nodiscard]] bool sees_reply(const std::string& text) {
        return sees(1, [&](const auto& one) { return one.method == "POST" && one.body == text; });
    }

    peers::journal journal;
    peers::rest_server server{journal};
    peers::core_service core{journal, "127.0.0.1"};
    csi_receiver::configuration settings{{"zorvin_uuid", "0x2329"},
                                         {"version", "v9"},
                                         {"routing", "101:127.0.0.1:wlan0:0A0000000101"},
                                         {"server", "localhost"},
                                         {"log", "no"}};
};

inline std::size_t count_line(const texts& lines, const std::string& line) {
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}
