/// All peers of one installation, and the daemon's configuration that matches them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "peers/core_service.h"
#include "peers/fusion_daemon.h"
#include "peers/journal.h"
#include "peers/radio.h"
#include "peers/rest_server.h"

namespace peers {

/// Where an option or a function takes a peer, it is "server", "fusion", "core" for all core
/// services, "core:ADDRESS" for one of them, or a name from the journal.
struct installation_options {
    unsigned zorvins = 1; // 1 to 250, with core services at 127.0.0.1, 127.0.0.2, ...
    unsigned bots = 1;    // with the ids 101, 102, ..., assigned to the Zorvins in turn
    std::string api = "v2";
    std::uint16_t http_port = 8090; // 0: the system chooses
    bool fusion = false;
    std::vector<std::string> absent;    // ids of Bots that are never heard
    std::vector<std::string> silent;    // peers that do not answer
    std::vector<std::string> wrong;     // PEER=KIND: peers with wrong answers
    std::set<std::string> without;      // not played: "server", "fusion", "core", "core:ADDRESS"
    std::set<std::string> relayed;      // not played either, but adopted: names in the journal
    unsigned first_core = 1;            // core services begin at this 127.0.0.*
    double loss = 0;                    // share of the requests that UDP peers lose
    std::chrono::milliseconds delay{0}; // before all peers' answers
    bool duplicate = false;             // UDP peers answer twice
    std::uint32_t seed = 1;             // decides which requests are lost
    radio::timing times;
};

/// A Bot as the routing of the configuration names it.
struct routed_bot {
    std::string uuid;
    std::string hwaddr; // "aa:bb:cc:dd:ee:ff"
    std::string ifname;
    std::string core_address; // of its Zorvin's core service
};

/// The Bots of an installation, in the order of the routing.
[[nodiscard]] std::vector<routed_bot> bots_of(const installation_options& options);

/// The daemon's configuration file for such an installation, with the log on standard output.
[[nodiscard]] std::string configuration(const installation_options& options);

/// Whether the installation plays this kind of peer: "server", "core" or "fusion".
[[nodiscard]] bool plays(const installation_options& options, const std::string& kind);

/// Throws std::runtime_error that says what is wrong with PEER=KIND, if anything is.
void check_wrong(const installation_options& options, const std::string& wrong);

/// Throws std::runtime_error that names the Bots if this is none of them.
void check_bot(const installation_options& options, const std::string& uuid);

/// Whether `who` names at least one peer of such an installation.
[[nodiscard]] bool has_peer(const installation_options& options, const std::string& who);

/// May be called from any thread.
class installation {
public:
    /// Starts all peers. Throws std::runtime_error when an address cannot be bound or an option
    /// names a peer that does not exist.
    installation(journal& record, installation_options options);

    [[nodiscard]] const installation_options& options() const { return options_; }
    /// There must be one.
    [[nodiscard]] rest_server& server() { return *server_; }
    [[nodiscard]] bool has_server() const { return server_ != nullptr; }
    [[nodiscard]] std::size_t core_count() const { return cores_.size(); }
    [[nodiscard]] core_service& core(std::size_t index) { return *cores_.at(index); }
    /// From now on the faults of all UDP peers are those of this peer, too.
    void adopt(std::unique_ptr<datagram_peer> peer) { adopted_.push_back(std::move(peer)); }
    /// nullptr without a fusion daemon.
    [[nodiscard]] fusion_daemon* fusion() { return fusion_.get(); }
    /// Like the function above, with the port that the server really uses.
    [[nodiscard]] std::string configuration() const;

    /// False when `who` names no peer. start() throws when a peer's address cannot be bound.
    [[nodiscard]] bool set_silent(const std::string& who, bool silent);
    [[nodiscard]] bool stop(const std::string& who);
    [[nodiscard]] bool start(const std::string& who);

    /// Throws std::runtime_error that says what is wrong with the peer or the kind.
    void set_wrong(const std::string& who, const std::string& kind);

    void set_present(const std::string& bot, bool present);
    void set_delay(std::chrono::milliseconds delay);
    [[nodiscard]] bool set_delay(const std::string& who, std::chrono::milliseconds delay);
    void set_loss(double share);

private:
    template<class action>
    void for_each_datagram_peer(const action& act);
    template<class action>
    [[nodiscard]] bool for_each_named(const std::string& who, const action& act);

    const installation_options options_;
    std::unique_ptr<rest_server> server_;
    std::vector<std::unique_ptr<core_service>> cores_;
    std::unique_ptr<fusion_daemon> fusion_;
    std::vector<std::unique_ptr<datagram_peer>> adopted_;
};

} // namespace peers
