/// Plays the core service of one Zorvin: interfaces, sounding, active Bots, local engines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "peers/datagram_peer.h"
#include "peers/engines.h"
#include "peers/journal.h"
#include "peers/radio.h"
#include "platform/json.h"

namespace peers {

/// What "info" reports about an interface.
struct interface_facts {
    int wiphy = 0;
    int antennas = 4;
    std::string driver_name = "qcawifi";
    std::string bssid = "02:00:00:00:00:01";
    std::string iftype = "ap";
    std::string ssid = "csi-lab";
};

struct core_service_options {
    interface_facts facts; // of every interface that set_facts does not name
    radio::timing times;
    std::uint32_t seed = 1; // decides which requests are lost
};

/// The name in the journal of the core service at this address: "core 127.0.0.1".
[[nodiscard]] std::string core_name(const std::string& address);

/// May be called from any thread. A stop is like a network outage: the service keeps its state.
class core_service {
public:
    /// Throws std::runtime_error when the address cannot be bound.
    core_service(journal& record, const std::string& address,
                 const core_service_options& options = {});

    void set_present(const std::string& uuid, bool present);
    void set_facts(const std::string& ifname, interface_facts facts);
    void answer_with(datagram_peer::reply_override replies) {
        peer_.answer_with(std::move(replies));
    }
    void stop() { peer_.stop(); }
    void start() { peer_.start(); }

    /// Gives access to its name and faults.
    [[nodiscard]] datagram_peer& peer() { return peer_; }

    [[nodiscard]] std::vector<std::string> interfaces() const;
    [[nodiscard]] std::vector<radio::sounded_bot> sounded() const;
    [[nodiscard]] std::vector<radio::heard_bot> heard() const;
    [[nodiscard]] std::vector<std::string> absent() const;
    [[nodiscard]] std::vector<running_engine> running_engines() const { return engines_.running(); }

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

    const interface_facts default_facts_;
    engines engines_;
    mutable std::mutex mutex_; // guards the members up to next_bot_
    radio radio_;
    std::map<std::string, interface_facts> facts_; // by interface
    std::size_t next_bot_ = 0;                     // where the next "active_bots" reply begins
    datagram_peer peer_;                           // last: its thread uses all of the above
};

} // namespace peers
