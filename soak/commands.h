/// Commands for the daemon, drawn from a seed, each with the reply that is right.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace csi_soak {

struct soak_bot {
    std::string id;
    std::string hwaddr;
    std::string ifname;
    std::string core; ///< Its core service's name in the journal.
};

/// The Bots of an installation with two Zorvins, as its configuration names them.
[[nodiscard]] std::vector<soak_bot> soak_bots(unsigned count);

/// What must stand where the expected reply has a gap.
enum class soak_gap { none, version, rate, bot_info, engine_state };

/// Marks the gap: no command has this character.
constexpr char soak_gap_mark = '@';

struct soak_command {
    std::string kind;              ///< For the figures.
    std::string text;              ///< As handed out.
    std::string expected;          ///< The reply, perhaps with one gap; empty: there is none.
    soak_gap gap = soak_gap::none; ///< What fills it.
    std::string engine_peer;       ///< Whose answer the reply passes on, as the journal names it.
    std::optional<int> sets_rate;  ///< What a question for the rate is answered with from then on.
};

/// The reply to what is no JSON, or no object.
constexpr const char* object_error = R"({"success":false,"reason":"Object error"})";

/// An engine command's reply when the engine did not answer.
constexpr const char* engine_error = R"({"success":false,"reason":"Engine object error"})";

/// For one thread.
class soak_commands {
public:
    /// The answer to an attach is one more.
    static constexpr std::size_t kinds_with_reply = 20;

    soak_commands(std::uint32_t seed, std::vector<soak_bot> bots);

    [[nodiscard]] soak_command draw();

private:
    [[nodiscard]] std::size_t below(std::size_t limit);
    template<typename list>
    [[nodiscard]] const auto& one_of(const list& choice) {
        return choice[below(choice.size())];
    }
    [[nodiscard]] std::string begin(const std::string& word);
    soak_command draw_rubbish();
    soak_command draw_plain();
    soak_command draw_engine();

    std::mt19937 dice_;
    const std::vector<soak_bot> bots_;
    std::uint64_t number_ = 0;
};

} // namespace csi_soak
