#include "soak/faults.h"

#include <array>
#include <numeric>
#include <utility>

namespace csi_soak {
namespace {

struct server_fault {
    const char* name;
    bool breaks; ///< Exchanges fail, so that commands and sessions may be lost.
    unsigned least_ms;
    unsigned most_ms;
    void (*apply)(peers::rest_server&, soak_deck&);
};

constexpr auto fall_silent = [](peers::rest_server& server, soak_deck&) {
    server.set_silent(true);
};

constexpr std::array<server_fault, 6> server_kinds = {{
    {"server stopped", true, 1000, 7000, [](auto& server, auto&) { server.stop(); }},
    {"server silent", true, 2000, 9000, fall_silent},
    {"server slow", false, 2000, 8000,
     [](auto& server, auto& dice) { server.set_delay(dice.between(200, 3000)); }},
    {"server cutting bodies", true, 1000, 7000, [](auto& server, auto&) { server.set_cut(true); }},
    {"server answering with an error status", false, 2000, 6000,
     [](auto& server, auto&) { server.set_status(503); }},
    {"server silent for longer than a POST waits", true, 21'000, 26'000, fall_silent},
}};
// The long silence comes half as often as the others: two minutes must see them all.
constexpr std::array<std::size_t, 11> server_cards = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5};

struct peer_fault {
    const char* name;
    void (*apply)(peers::datagram_peer&, soak_deck&);
};

// Slow stays below the daemon's patience: requests carry no number, so a late answer could be taken
// for that to a later request which happens to have the same port.
constexpr std::array<peer_fault, 5> peer_kinds = {{
    {"stopped", [](auto& peer, auto&) { peer.stop(); }},
    {"silent", [](auto& peer, auto&) { peer.set_silent(true); }},
    {"slow", [](auto& peer, auto& dice) { peer.set_delay(dice.between(100, 1500)); }},
    {"answering twice", [](auto& peer, auto&) { peer.set_duplicate(true); }},
    {"losing datagrams",
     [](auto& peer, auto& dice) {
         peer.set_loss(static_cast<double>(dice.between(200, 600).count()) / 1000);
     }},
}};

} // namespace

soak_deck::soak_deck(std::uint32_t seed, std::size_t cards)
    : dice_(seed)
    , size_(cards) {}

std::size_t soak_deck::draw() {
    if (cards_.empty()) {
        cards_.resize(size_);
        std::iota(cards_.begin(), cards_.end(), std::size_t{0});
        for (std::size_t left = size_; left > 1; --left) {
            std::swap(cards_[left - 1], cards_[dice_() % left]);
        }
    }
    const std::size_t card = cards_.back();
    cards_.pop_back();
    return card;
}

std::chrono::milliseconds soak_deck::between(unsigned least_ms, unsigned most_ms) {
    return std::chrono::milliseconds(least_ms + dice_() % (most_ms - least_ms + 1));
}

server_faults::server_faults(peers::installation& lab, soak_record& record, soak_log& log,
                             soak_report& report, std::uint32_t seed)
    : lab_(lab)
    , record_(record)
    , log_(log)
    , report_(report)
    , deck_(seed, server_cards.size())
    , due_(soak_clock::now() + deck_.between(1000, 3000)) {}

void server_faults::step(soak_clock::time_point now) {
    if (state_ == state::returning) {
        settle(now);
    } else if (now >= due_) {
        if (state_ == state::fault) {
            heal();
        } else {
            const std::size_t kind = server_cards[deck_.draw()];
            begin(kind, deck_.between(server_kinds[kind].least_ms, server_kinds[kind].most_ms));
        }
    }
}

void server_faults::begin(std::size_t kind, std::chrono::milliseconds lasts) {
    kind_ = kind;
    state_ = state::fault;
    due_ = soak_clock::now() + lasts;
    overdue_ = false;
    log_.read();
    lines_before_ = log_.count().failures;
    before_ = record_.count();
    ++counts_[server_kinds[kind].name];
    report_.say(std::string(server_kinds[kind].name) + " for " + in_seconds(lasts));
    if (server_kinds[kind].breaks) {
        record_.begin_excuse();
    }
    server_kinds[kind].apply(lab_.server(), deck_);
}

void server_faults::heal() {
    if (state_ != state::fault) {
        return;
    }
    peers::rest_server& server = lab_.server();
    server.set_silent(false);
    server.set_delay(std::chrono::milliseconds(0));
    server.set_cut(false);
    server.set_status(std::nullopt);
    server.start();
    healed_ = soak_clock::now();
    requests_ = requests();
    state_ = state::returning;
}

/// Polls and attaches: what the daemon sends only when it takes commands again.
std::size_t server_faults::requests() const {
    return lab_.server().gets() + lab_.server().attaches();
}

void server_faults::settle(soak_clock::time_point now) {
    const soak_clock::duration took = now - healed_;
    if (requests() == requests_) {
        if (took > longest_return && !std::exchange(overdue_, true)) {
            report_.violation("the daemon comes back", "not within " + in_seconds(took));
        }
        return;
    }
    record_.end_excuse();
    state_ = state::calm;
    due_ = now + deck_.between(4000, 9000);
    longest_ = std::max(longest_, took);
    log_.read();
    const soak_record::counts after = record_.count();
    const std::size_t attaches = after.attaches - before_.attaches;
    const std::size_t lines = log_.count().failures - lines_before_;
    report_.say(std::string(server_kinds[kind_].name) + ": over, the daemon " +
                (attaches > 0 ? "attached again" : "came back without an attach") + " after " +
                in_seconds(took) + ", its log has " + std::to_string(lines) + " line(s) of it");
    judge(attaches, lines, !before_.attached || after.disconnects != before_.disconnects);
}

void server_faults::judge(std::size_t attaches, std::size_t lines, bool dismissed) {
    const char* const check = "an outage gives one line in the log";
    const std::string seen = std::string(server_kinds[kind_].name) + ": " + std::to_string(lines) +
                             " lines, " + std::to_string(attaches) + " attaches";
    log_lines_ += lines;
    const bool is_lost = attaches > 0 && !dismissed;
    sessions_lost_ += is_lost ? 1 : 0;
    if (!server_kinds[kind_].breaks) {
        report_.violation_unless(lines == 0, check, seen);
        report_.violation_unless(!is_lost, "what is no outage keeps the session", seen);
    } else {
        report_.violation_unless(is_lost ? lines == 1 : lines <= 1, check, seen);
    }
}

peer_faults::peer_faults(peers::installation& lab, soak_record& record, soak_report& report,
                         std::uint32_t seed)
    : record_(record)
    , report_(report)
    , peers_({&lab.core(0).peer(), &lab.core(1).peer(), &lab.fusion()->peer()})
    , deck_(seed, peers_.size() * peer_kinds.size())
    , due_(soak_clock::now() + deck_.between(1000, 3000)) {}

void peer_faults::step(soak_clock::time_point now) {
    if (now < due_) {
        return;
    }
    if (struck_ != nullptr) {
        heal();
        due_ = now + deck_.between(1500, 3500);
    } else {
        begin(deck_.draw(), now);
    }
}

void peer_faults::begin(std::size_t card, soak_clock::time_point now) {
    struck_ = peers_[card / peer_kinds.size()];
    const std::size_t kind = card % peer_kinds.size();
    const auto lasts = deck_.between(2000, 6000);
    due_ = now + lasts;
    const std::string name = struck_->name() + " " + peer_kinds[kind].name;
    ++counts_[name];
    report_.say(name + " for " + in_seconds(lasts));
    record_.begin_peer_fault(struck_->name());
    peer_kinds[kind].apply(*struck_, deck_);
}

void peer_faults::heal() {
    if (struck_ == nullptr) {
        return;
    }
    struck_->set_silent(false);
    struck_->set_delay(std::chrono::milliseconds(0));
    struck_->set_duplicate(false);
    struck_->set_loss(0);
    struck_->start();
    record_.end_peer_fault(struck_->name());
    report_.say(struck_->name() + ": well again");
    struck_ = nullptr;
}

bot_faults::bot_faults(peers::installation& lab, std::vector<soak_bot> bots, std::uint32_t seed)
    : lab_(lab)
    , bots_(std::move(bots))
    , deck_(seed, bots_.size())
    , absent_(bots_.size()) {}

void bot_faults::step(soak_clock::time_point now) {
    if (now < due_) {
        return;
    }
    ++changes_;
    if (absent_ < bots_.size()) {
        lab_.set_present(bots_[std::exchange(absent_, bots_.size())].id, true);
        due_ = now + deck_.between(500, 3000);
    } else {
        absent_ = deck_.draw();
        lab_.set_present(bots_[absent_].id, false);
        due_ = now + deck_.between(200, 4000);
    }
}

} // namespace csi_soak
