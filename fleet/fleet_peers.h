/// The peers of a fleet of daemons: one REST server, and a core service for each daemon.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "fleet/traffic_meter.h"
#include "peers/core_service.h"
#include "peers/journal.h"
#include "peers/rest_server.h"

namespace csi_fleet {

struct fleet_options {
    unsigned daemons = 1;
    std::uint16_t port = 18091;
    std::string attach_file;                  // gets the time of each attach
    std::pair<int, int> poll_intervals{0, 0}; // limits in ms; 0: the daemons keep their own
};

/// For one thread.
class fleet_peers {
public:
    /// Starts the peers; core services are at 127.1.0.1 to 127.1.0.250, 127.1.1.1 and so on.
    /// Throws std::runtime_error when a port is in use or packets cannot be counted.
    explicit fleet_peers(const fleet_options& options);

    /// Executes one line of input, and returns the line to answer:
    /// - "stop", "start": stops or starts the server
    /// - "pollers": the number of daemons that have polled since the server's last start
    /// - "traffic": what traffic_meter has counted: bytes of the attach, polls, their bytes, and
    ///   "complete" or "incomplete"
    /// - "stop-traffic": stops counting, which slows the network a little
    /// All others, "state" among them, are answered with the time in ms and the numbers of GETs,
    /// POSTs and attaches so far.
    [[nodiscard]] std::string execute(const std::string& line);

private:
    peers::journal& observed_journal();
    void handle_attach();
    [[nodiscard]] std::string random_poll_interval();
    [[nodiscard]] std::string state() const;
    [[nodiscard]] std::string traffic();
    [[nodiscard]] std::size_t pollers() const;
    [[nodiscard]] long long now_ms() const;

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point server_start_ = start_;
    // Used by the journal's observer only, which runs on one thread at a time.
    std::uniform_int_distribution<int> poll_intervals_;
    std::minstd_rand random_;
    std::ofstream attaches_;

    peers::journal journal_{1};
    std::optional<traffic_meter> traffic_;
    peers::rest_server server_;
    std::vector<std::unique_ptr<peers::core_service>> core_services_;
};

} // namespace csi_fleet
