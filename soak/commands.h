/// The commands of a soak, chosen at random from a seed, each with the reply expected to it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "peers/installation.h"

namespace csi_soak {

/// The part of an expected reply that is known only once the reply arrives.
enum class variable_part { none, version, rate, bot_info, engine_state };

/// Stands for the variable part. No command contains this character.
constexpr char variable_part_mark = '@';

struct test_command {
    std::string kind;     // in the figures
    std::string text;     // as the server hands it out
    std::string expected; // the reply; empty: none is expected
    variable_part variable = variable_part::none;
    std::string engine_peer;      // the peer that answers for the engine, as named in the journal
    std::optional<int> sets_rate; // the rate that "rate" reports from then on
};

/// The reply to what is not a JSON object.
constexpr const char* object_error = R"({"success":false,"reason":"Object error"})";

/// The reply to an engine command when the engine did not answer.
constexpr const char* engine_error = R"({"success":false,"reason":"Engine object error"})";

/// For one thread.
class command_generator {
public:
    /// Without the answer to an attach.
    static constexpr std::size_t kinds_with_reply = 20;

    command_generator(std::uint32_t seed, std::vector<peers::routed_bot> bots);

    [[nodiscard]] test_command next();

private:
    [[nodiscard]] std::size_t below(std::size_t limit);
    template<class list>
    [[nodiscard]] const auto& one_of(const list& choices) {
        return choices[below(choices.size())];
    }
    [[nodiscard]] std::string numbered(const std::string& word);
    [[nodiscard]] test_command malformed();
    [[nodiscard]] test_command from_table();
    [[nodiscard]] test_command for_engine();

    std::mt19937 random_;
    const std::vector<peers::routed_bot> bots_;
    std::uint64_t number_ = 0;
};

} // namespace csi_soak
