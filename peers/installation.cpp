#include "peers/installation.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "platform/utilities.h"

namespace peers {
namespace {

/// Locally administered addresses begin here.
constexpr std::uint64_t first_hwaddr = 0x020000000000;

std::string core_address(unsigned index) {
    return "127.0.0." + std::to_string(index + 1);
}

std::string hex(unsigned number, int digits) {
    char text[16] = {};
    std::snprintf(text, sizeof text, "%0*x", digits, number);
    return text;
}

std::string without_colons(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), ':'), text.end());
    return text;
}

std::string routing(const std::vector<routed_bot>& bots) {
    std::string result;
    for (const routed_bot& bot : bots) {
        result += (result.empty() ? "" : ",") + bot.uuid + ':' + bot.core_address + ':' +
                  bot.ifname + ':' + without_colons(bot.hwaddr);
    }
    return result;
}

core_service_options core_options(const installation_options& options, unsigned index) {
    core_service_options result;
    result.facts.bssid = "02:00:00:00:00:" + hex(index + 1, 2);
    result.times = options.times;
    result.seed = options.seed + index;
    return result;
}

rest_server_options server_options(const installation_options& options) {
    rest_server_options result;
    result.api = options.api;
    result.port = options.http_port;
    return result;
}

/// Of "a", "b": "a, b".
std::string list(const std::vector<std::string>& items) {
    std::string result;
    for (const std::string& item : items) {
        result += (result.empty() ? "" : ", ") + item;
    }
    return result.empty() ? "none" : result;
}

std::string list(const std::vector<engines::run>& runs) {
    std::vector<std::string> items(runs.size());
    std::transform(runs.begin(), runs.end(), items.begin(),
                   [](const engines::run& one) { return one.type + " for " + one.bot; });
    return list(items);
}

std::string state_of(core_service& core) {
    std::vector<std::string> sounded;
    for (const auto& bot : core.sounded()) {
        sounded.push_back(bot.uuid + " (rate " + std::to_string(bot.rate) + ")");
    }
    std::vector<std::string> heard;
    for (const auto& bot : core.heard()) {
        heard.push_back(bot.uuid);
    }
    return "interfaces: " + list(core.interfaces()) + "; sounded: " + list(sounded) +
           "; heard: " + list(heard) + "; engines: " + list(core.running_engines());
}

std::string state_of(const rest_server& server) {
    const std::string zorvin = server.attached_zorvin();
    return (zorvin.empty() ? "nothing attached" : "attached: Zorvin " + zorvin) + ", " +
           std::to_string(server.attaches()) + " attaches, " + std::to_string(server.gets()) +
           " polls, " + std::to_string(server.posts()) +
           " posts; queued commands: " + std::to_string(server.queued());
}

std::string condition(bool running, bool silent) {
    return !running ? " [stopped]" : silent ? " [silent]" : "";
}

} // namespace

std::vector<routed_bot> bots_of(const installation_options& options) {
    constexpr unsigned first_id = 101;
    std::vector<routed_bot> result;
    for (unsigned index = 0; index < options.bots; ++index) {
        const unsigned id = first_id + index;
        const unsigned zorvin = index % options.zorvins;
        result.push_back({std::to_string(id), csi_receiver::id_to_mac(first_hwaddr + id),
                          "wlan" + std::to_string(zorvin), core_address(zorvin)});
    }
    return result;
}

std::string configuration(const installation_options& options) {
    std::ostringstream result;
    result << "# Matches csi_lab with " << options.zorvins << " Zorvins and " << options.bots
           << " Bots. Start the lab first.\n"
           << "zorvin_uuid=9001\n"
           << "server=127.0.0.1\n"
           << "http_port=" << options.http_port << '\n'
           << "api=" << options.api << '\n'
           << "log=no\n"
           << (options.fusion ? "fusion=yes\n" : "")
           << "# Bot id:address of its core service:interface:hwaddr, for each Bot.\n"
           << "routing=" << routing(bots_of(options)) << '\n';
    return result.str();
}

std::vector<std::string> peers_named(const installation_options& options, const std::string& who) {
    std::vector<std::string> result;
    if (who == "server" || (who == "fusion" && options.fusion)) {
        result.push_back(who);
    }
    for (unsigned index = 0; index < options.zorvins; ++index) {
        const std::string address = core_address(index);
        if (who == "core" || who == "core:" + address || who == "core " + address) {
            result.push_back("core " + address);
        }
    }
    return result;
}

installation::installation(journal& record, installation_options options)
    : options_(std::move(options))
    , server_(record, server_options(options_)) {
    for (unsigned index = 0; index < options_.zorvins; ++index) {
        cores_.push_back(std::make_unique<core_service>(record, core_address(index),
                                                        core_options(options_, index)));
    }
    if (options_.fusion) {
        fusion_ = std::make_unique<fusion_daemon>(record, options_.seed + options_.zorvins);
    }
    for (const std::string& bot : options_.absent) {
        set_present(bot, false);
    }
    set_delay(options_.delay);
    set_loss(options_.loss);
    visit_datagram_peers([this](datagram_peer& peer) { peer.set_duplicate(options_.duplicate); });
    for (const std::string& who : options_.silent) {
        if (!set_silent(who, true)) {
            throw std::runtime_error("no peer " + who);
        }
    }
}

std::string installation::configuration() const {
    installation_options real = options_;
    real.http_port = server_.port();
    return peers::configuration(real);
}

bool installation::set_silent(const std::string& who, bool silent) {
    return visit(
        who, [silent](rest_server& server) { server.set_silent(silent); },
        [silent](datagram_peer& peer) { peer.set_silent(silent); });
}

bool installation::stop(const std::string& who) {
    return visit(
        who, [](rest_server& server) { server.stop(); }, [](datagram_peer& peer) { peer.stop(); });
}

bool installation::start(const std::string& who) {
    return visit(
        who, [](rest_server& server) { server.start(); },
        [](datagram_peer& peer) { peer.start(); });
}

void installation::set_present(const std::string& bot, bool present) {
    for (const auto& core : cores_) {
        core->set_present(bot, present);
    }
}

void installation::set_delay(std::chrono::milliseconds delay) {
    server_.set_delay(delay);
    visit_datagram_peers([delay](datagram_peer& peer) { peer.set_delay(delay); });
}

void installation::set_loss(double share) {
    visit_datagram_peers([share](datagram_peer& peer) { peer.set_loss(share); });
}

std::vector<std::string> installation::listening() const {
    std::vector<std::string> result;
    result.push_back("server: HTTP 127.0.0.1 port " + std::to_string(server_.port()) + ", API " +
                     options_.api);
    for (const auto& core : cores_) {
        result.push_back(core->peer().name() + ": UDP port " + std::to_string(core_service_port));
    }
    if (fusion_) {
        result.push_back(std::string("fusion: UDP ") + fusion_address + " port " +
                         std::to_string(fusion_port));
    }
    return result;
}

std::vector<std::string> installation::state() const {
    std::vector<std::string> result;
    result.push_back("server" + condition(server_.running(), server_.faults().silent) + ": " +
                     state_of(server_));
    for (const auto& core : cores_) {
        const datagram_peer& peer = core->peer();
        result.push_back(peer.name() + condition(peer.running(), peer.faults().silent) + ": " +
                         state_of(*core));
    }
    if (fusion_) {
        const datagram_peer& peer = fusion_->peer();
        result.push_back(peer.name() + condition(peer.running(), peer.faults().silent) +
                         ": engines: " + list(fusion_->running_engines()));
    }
    return result;
}

void installation::visit_datagram_peers(const std::function<void(datagram_peer&)>& visitor) {
    for (const auto& core : cores_) {
        visitor(core->peer());
    }
    if (fusion_) {
        visitor(fusion_->peer());
    }
}

bool installation::visit(const std::string& who,
                         const std::function<void(rest_server&)>& visit_server,
                         const std::function<void(datagram_peer&)>& visit_datagrams) {
    const std::vector<std::string> names = peers_named(options_, who);
    const auto is_named = [&names](const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (is_named("server")) {
        visit_server(server_);
    }
    visit_datagram_peers([&](datagram_peer& peer) {
        if (is_named(peer.name())) {
            visit_datagrams(peer);
        }
    });
    return !names.empty();
}

} // namespace peers
