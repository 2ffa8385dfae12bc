#include "peers/installation.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "peers/datagram_peer.h"
#include "platform/utilities.h"

namespace peers {
namespace {

/// Locally administered addresses begin here.
constexpr std::uint64_t first_hwaddr = 0x020000000000;

std::string core_address(const installation_options& options, unsigned index) {
    const unsigned zorvin = options.first_core + index;
    return "127.0.0." + std::to_string(zorvin);
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

core_service_options core_options(const installation_options& options, unsigned zorvin) {
    core_service_options result;
    result.facts.bssid = csi_receiver::id_to_mac(first_hwaddr + zorvin + 1);
    result.times = options.times;
    result.seed = options.seed + zorvin;
    return result;
}

rest_server_options server_options(const installation_options& options) {
    rest_server_options result;
    result.api = options.api;
    result.port = options.http_port;
    return result;
}

/// Whether `who` means the peer that has this name in the journal.
bool means(const std::string& who, const std::string& name) {
    const std::string prefix = core_name("");
    const bool is_core = name.rfind(prefix, 0) == 0;
    return who == name ||
           (is_core && (who == "core" || who == "core:" + name.substr(prefix.size())));
}

bool plays_core(const installation_options& options, unsigned zorvin) {
    const std::string address = core_address(options, zorvin);
    return plays(options, "core") && plays(options, "core:" + address) &&
           options.relayed.count(core_name(address)) == 0;
}

} // namespace

std::vector<routed_bot> bots_of(const installation_options& options) {
    constexpr unsigned first_id = 101;
    std::vector<routed_bot> result;
    result.reserve(options.bots);
    for (unsigned index = 0; index < options.bots; ++index) {
        const unsigned id = first_id + index;
        const unsigned zorvin = index % options.zorvins;
        result.push_back({std::to_string(id), csi_receiver::id_to_mac(first_hwaddr + id),
                          "wlan" + std::to_string(zorvin), core_address(options, zorvin)});
    }
    return result;
}

std::string configuration(const installation_options& options) {
    std::ostringstream result;
    result << "# For csi_lab with --zorvins " << options.zorvins << " --bots " << options.bots
           << "; start csi_lab first.\n"
           << "zorvin_uuid=9001\n"
           << "server=127.0.0.1\n"
           << "http_port=" << options.http_port << '\n'
           << "api=" << options.api << '\n'
           << "log=no\n"
           << (options.fusion ? "fusion=yes\n" : "")
           << "# One item per Bot: its id, its core service's address, interface, hwaddr.\n"
           << "routing=" << routing(bots_of(options)) << '\n';
    return result.str();
}

bool plays(const installation_options& options, const std::string& kind) {
    return options.without.count(kind) == 0 && options.relayed.count(kind) == 0 &&
           (kind != "fusion" || options.fusion);
}

void check_wrong(const installation_options& options, const std::string& wrong) {
    const std::size_t middle = wrong.find('=');
    const std::string who = wrong.substr(0, middle);
    if (middle == std::string::npos) {
        throw std::runtime_error("not PEER=KIND: " + wrong);
    }
    if (!has_peer(options, who)) {
        throw std::runtime_error("no such peer: " + who);
    }
    const std::string peer = who.substr(0, who.find_first_of(": "));
    const wrong_answer_row* const row = find_wrong_answer(wrong.substr(middle + 1));
    if (row == nullptr || row->peers.find(peer) == std::string_view::npos) {
        throw std::runtime_error("KIND for " + peer + " is one of " + wrong_answers_of(peer) +
                                 ", off");
    }
}

void check_bot(const installation_options& options, const std::string& uuid) {
    const auto bots = bots_of(options);
    const bool found =
        std::any_of(bots.begin(), bots.end(), [&](const auto& bot) { return bot.uuid == uuid; });
    if (found) {
        return;
    }
    std::string known = "none";
    if (!bots.empty()) {
        known = bots.front().uuid + (bots.size() == 1 ? "" : " to " + bots.back().uuid);
    }
    throw std::runtime_error("no such Bot: " + uuid + "; the lab has " + known);
}

bool has_peer(const installation_options& options, const std::string& who) {
    bool result = (plays(options, "server") && means(who, "server")) ||
                  (plays(options, "fusion") && means(who, "fusion"));
    for (const std::string& name : options.relayed) {
        result = result || means(who, name);
    }
    for (unsigned zorvin = 0; zorvin < options.zorvins; ++zorvin) {
        result = result || (plays_core(options, zorvin) &&
                            means(who, core_name(core_address(options, zorvin))));
    }
    return result;
}

installation::installation(journal& record, installation_options options)
    : options_(std::move(options)) {
    if (plays(options_, "server")) {
        server_ = std::make_unique<rest_server>(record, server_options(options_));
    }
    for (unsigned zorvin = 0; zorvin < options_.zorvins; ++zorvin) {
        if (plays_core(options_, zorvin)) {
            cores_.push_back(std::make_unique<core_service>(record, core_address(options_, zorvin),
                                                            core_options(options_, zorvin)));
        }
    }
    if (plays(options_, "fusion")) {
        fusion_ = std::make_unique<fusion_daemon>(record, options_.seed + options_.zorvins);
    }
    for (const std::string& bot : options_.absent) {
        set_present(bot, false);
    }
    set_delay(options_.delay);
    set_loss(options_.loss);
    for_each_datagram_peer([this](datagram_peer& peer) { peer.set_duplicate(options_.duplicate); });
    for (const std::string& who : options_.silent) {
        if (!set_silent(who, true)) {
            throw std::runtime_error("no such peer: " + who);
        }
    }
    for (const std::string& wrong : options_.wrong) {
        const std::size_t middle = wrong.find('=');
        set_wrong(wrong.substr(0, middle), wrong.substr(middle + 1));
    }
}

std::string installation::configuration() const {
    installation_options real = options_;
    real.http_port = server_ ? server_->port() : options_.http_port;
    return peers::configuration(real);
}

template<class action>
void installation::for_each_datagram_peer(const action& act) {
    for (const auto& core : cores_) {
        act(core->peer());
    }
    if (fusion_) {
        act(fusion_->peer());
    }
    for (const auto& peer : adopted_) {
        act(*peer);
    }
}

template<class action>
bool installation::for_each_named(const std::string& who, const action& act) {
    if (server_ && means(who, "server")) {
        act(*server_);
    }
    for_each_datagram_peer([&](datagram_peer& peer) {
        if (means(who, peer.name())) {
            act(peer);
        }
    });
    return has_peer(options_, who);
}

bool installation::set_silent(const std::string& who, bool silent) {
    return for_each_named(who, [silent](auto& peer) { peer.set_silent(silent); });
}

bool installation::stop(const std::string& who) {
    return for_each_named(who, [](auto& peer) { peer.stop(); });
}

bool installation::start(const std::string& who) {
    return for_each_named(who, [](auto& peer) { peer.start(); });
}

void installation::set_wrong(const std::string& who, const std::string& kind) {
    check_wrong(options_, who + "=" + kind);
    static_cast<void>(
        for_each_named(who, [&](auto& peer) { peer.set_wrong(find_wrong_answer(kind)->kind); }));
}

void installation::set_present(const std::string& bot, bool present) {
    for (const auto& core : cores_) {
        core->set_present(bot, present);
    }
}

void installation::set_delay(std::chrono::milliseconds delay) {
    if (server_) {
        server_->set_delay(delay);
    }
    for_each_datagram_peer([delay](datagram_peer& peer) { peer.set_delay(delay); });
}

bool installation::set_delay(const std::string& who, std::chrono::milliseconds delay) {
    return for_each_named(who, [delay](auto& peer) { peer.set_delay(delay); });
}

void installation::set_loss(double share) {
    for_each_datagram_peer([share](datagram_peer& peer) { peer.set_loss(share); });
}

} // namespace peers
