/// Plays the core service of one Zorvin: interfaces, sounding, active Bots, local engines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "peers/datagram_peer.h"
#include "peers/engines.h"
#include "peers/radio.h"

namespace peers {

constexpr std::uint16_t core_service_port = 14310;

/// What "info" tells of an interface.
struct interface_facts {
    int wiphy = 0;
    int antennas = 4;
    std::string driver_name = "qcawifi";
    std::string bssid = "02:00:00:00:00:01";
    std::string iftype = "ap";
    std::string ssid = "csi-lab";
};

struct core_service_options {
    interface_facts facts;                         ///< Of every interface,
    std::map<std::string, interface_facts> except; ///< but of these, by name.
    radio::timing times;
    /// Longest "active_bots" reply in bytes: the daemon reads no more than 4096. When not all
    /// Bots fit, each reply goes on where the one before left off.
    std::size_t reply_limit = 4000;
    std::uint32_t seed = 1;
};

/// May be called from any thread. What it knows outlives a stop: the outage is the network's.
class core_service {
public:
    /// Named "core " and its address. Throws std::runtime_error when that cannot be bound.
    core_service(journal& record, const std::string& address, core_service_options options = {});

    void set_present(const std::string& uuid, bool present);
    void set_facts(const std::string& ifname, interface_facts facts);
    void answer_with(datagram_peer::substitute replies) { peer_.answer_with(std::move(replies)); }
    void stop() { peer_.stop(); }
    void start() { peer_.start(); }

    /// For its faults, its name and its address.
    [[nodiscard]] datagram_peer& peer() { return peer_; }

    [[nodiscard]] std::vector<std::string> interfaces() const;
    [[nodiscard]] std::vector<radio::sounded_bot> sounded() const;
    [[nodiscard]] std::vector<radio::heard_bot> heard() const;
    [[nodiscard]] std::vector<engines::run> running_engines() const { return engines_.running(); }

private:
    using command = std::string (core_service::*)(const json::value&);

    std::string answer(const std::string& request);
    std::string run_command(const json::value& request);
    std::string add_interface(const json::value& request);
    std::string del_interface(const json::value& request);
    std::string get_interfaces(const json::value& request);
    std::string info(const json::value& request);
    std::string active_bots(const json::value& request);
    std::string sounding(const json::value& request);
    std::string save_csi(const json::value& request);

    static const std::map<std::string, command> commands;

    engines engines_;
    mutable std::mutex mutex_; ///< For the three below.
    core_service_options options_;
    radio radio_;
    std::size_t next_bot_ = 0; ///< Where the next "active_bots" reply begins.
    datagram_peer peer_;       ///< Last: its thread uses all of the above.
};

} // namespace peers
