/// Faults of the lab's peers, drawn from a seed, one after the other: how each begins, lasts, ends,
/// and what the daemon owes us then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "peers/installation.h"
#include "soak/log.h"
#include "soak/record.h"
#include "soak/report.h"

namespace csi_soak {

/// Dice, and a deck of cards that is shuffled anew when all were drawn.
class soak_deck {
public:
    soak_deck(std::uint32_t seed, std::size_t cards);

    [[nodiscard]] std::size_t draw();
    [[nodiscard]] std::chrono::milliseconds between(unsigned least_ms, unsigned most_ms);

private:
    std::mt19937 dice_;
    const std::size_t size_;
    std::vector<std::size_t> cards_;
};

/// Faults of the REST server. After each the daemon must come back in time, and its log must have
/// gained the one line that it owes. For one thread, as the others here.
class server_faults {
public:
    static constexpr std::chrono::seconds longest_return{30};

    server_faults(peers::installation& lab, soak_record& record, soak_log& log, soak_report& report,
                  std::uint32_t seed);

    void step(soak_clock::time_point now);
    void begin(std::size_t kind, std::chrono::milliseconds lasts);
    void heal();
    [[nodiscard]] bool calm() const { return state_ == state::calm; }
    [[nodiscard]] const std::map<std::string, std::size_t>& counts() const { return counts_; }
    [[nodiscard]] soak_clock::duration longest() const { return longest_; }
    [[nodiscard]] std::size_t sessions_lost() const { return sessions_lost_; }
    [[nodiscard]] std::size_t log_lines() const { return log_lines_; }

private:
    enum class state { calm, fault, returning };

    [[nodiscard]] std::size_t requests() const;
    void settle(soak_clock::time_point now);
    void judge(std::size_t attaches, std::size_t lines, bool dismissed);

    peers::installation& lab_;
    soak_record& record_;
    soak_log& log_;
    soak_report& report_;
    soak_deck deck_;
    state state_ = state::calm;
    soak_clock::time_point due_; ///< Of the next fault, or of the end of this one.
    soak_clock::time_point healed_;
    std::size_t kind_ = 0;
    std::size_t requests_ = 0;   ///< When the server was whole again.
    soak_record::counts before_; ///< When the fault began,
    std::size_t lines_before_ = 0;
    bool overdue_ = false;
    std::map<std::string, std::size_t> counts_;
    soak_clock::duration longest_{0};
    std::size_t sessions_lost_ = 0;
    std::size_t log_lines_ = 0;
};

/// Faults of core services and fusion daemon.
class peer_faults {
public:
    peer_faults(peers::installation& lab, soak_record& record, soak_report& report,
                std::uint32_t seed);

    void step(soak_clock::time_point now);
    void heal();
    [[nodiscard]] const std::map<std::string, std::size_t>& counts() const { return counts_; }

private:
    void begin(std::size_t card, soak_clock::time_point now);

    soak_record& record_;
    soak_report& report_;
    std::vector<peers::datagram_peer*> peers_;
    soak_deck deck_;
    peers::datagram_peer* struck_ = nullptr;
    soak_clock::time_point due_;
    std::map<std::string, std::size_t> counts_;
};

/// Bots that go and come back, one at a time, so that scans do not all last their longest.
class bot_faults {
public:
    bot_faults(peers::installation& lab, std::vector<soak_bot> bots, std::uint32_t seed);

    void step(soak_clock::time_point now);
    [[nodiscard]] std::size_t changes() const { return changes_; }

private:
    peers::installation& lab_;
    const std::vector<soak_bot> bots_;
    soak_deck deck_;
    std::size_t absent_; ///< Of the Bots; their number: none is.
    soak_clock::time_point due_;
    std::size_t changes_ = 0;
};

} // namespace csi_soak
