/// All peers of one installation, and the daemon's configuration that matches them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "peers/core_service.h"
#include "peers/fusion_daemon.h"
#include "peers/journal.h"
#include "peers/rest_server.h"

namespace peers {

struct installation_options {
    unsigned zorvins = 1; ///< 1 to 250: core services at 127.0.0.1, 127.0.0.2, …
    unsigned bots = 1;    ///< With the ids 101, 102, …, dealt out to the Zorvins in turn.
    std::string api = "v2";
    std::uint16_t http_port = 8090; ///< 0: the system chooses.
    bool fusion = false;
    std::vector<std::string> absent;    ///< Ids of Bots that are never heard.
    std::vector<std::string> silent;    ///< Peers that do not answer, as `peers_named` takes them.
    double loss = 0;                    ///< UDP peers lose this share of the requests.
    std::chrono::milliseconds delay{0}; ///< All peers wait before they answer.
    bool duplicate = false;             ///< UDP peers answer twice.
    std::uint32_t seed = 1;             ///< Of the losses.
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

/// The daemon's configuration file for such an installation, with its log on standard output.
[[nodiscard]] std::string configuration(const installation_options& options);

/// The names, as in the journal, of the peers that `who` means: "server", "fusion", "core" for
/// all core services or "core:ADDRESS" for one. Empty when there is no such peer.
[[nodiscard]] std::vector<std::string> peers_named(const installation_options& options,
                                                   const std::string& who);

/// May be called from any thread.
class installation {
public:
    /// Starts all peers. Throws std::runtime_error when an address cannot be bound or an option
    /// names no peer.
    installation(journal& record, installation_options options);

    [[nodiscard]] rest_server& server() { return server_; }
    [[nodiscard]] std::size_t core_count() const { return cores_.size(); }
    [[nodiscard]] core_service& core(std::size_t index) { return *cores_.at(index); }
    [[nodiscard]] fusion_daemon* fusion() { return fusion_.get(); } ///< nullptr: there is none.
    /// As the function above, with the port that the server really has.
    [[nodiscard]] std::string configuration() const;

    /// False when `who` names no peer. Start throws as the peers do.
    [[nodiscard]] bool set_silent(const std::string& who, bool silent);
    [[nodiscard]] bool stop(const std::string& who);
    [[nodiscard]] bool start(const std::string& who);

    void set_present(const std::string& bot, bool present);
    void set_delay(std::chrono::milliseconds delay);
    void set_loss(double share);

    /// For people: what listens where, and what goes on there, a line each.
    [[nodiscard]] std::vector<std::string> listening() const;
    [[nodiscard]] std::vector<std::string> state() const;

private:
    void visit_datagram_peers(const std::function<void(datagram_peer&)>& visitor);
    [[nodiscard]] bool visit(const std::string& who,
                             const std::function<void(rest_server&)>& visit_server,
                             const std::function<void(datagram_peer&)>& visit_datagrams);

    const installation_options options_;
    rest_server server_;
    std::vector<std::unique_ptr<core_service>> cores_;
    std::unique_ptr<fusion_daemon> fusion_;
};

} // namespace peers
