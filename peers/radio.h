/// A model of one access point's radio: its interfaces, whom it sounds and whom it hears.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace peers {

/// Not for several threads at once. Time is given from outside and must not run backwards.
class radio {
public:
    using time_point = std::chrono::steady_clock::time_point;

    struct timing {
        std::chrono::milliseconds appear_after{1500};
        std::chrono::milliseconds vanish_after{3000};
    };
    struct heard_bot {
        std::string uuid;
        std::uint32_t count; ///< Of measurements; never 0.
    };
    struct sounded_bot {
        std::string uuid;
        std::uint32_t rate;
    };

    explicit radio(timing times);

    void add_interface(const std::string& name);
    [[nodiscard]] bool del_interface(const std::string& name); ///< False: there is none.
    [[nodiscard]] const std::vector<std::string>& interfaces() const { return interfaces_; }

    /// A Bot that is sounded exists unless it was set absent before. Rate 0 ends the sounding.
    void sound(const std::string& uuid, std::uint32_t rate, time_point now);
    void set_present(const std::string& uuid, bool present, time_point now);

    /// The Bots that have answered for long enough, or did until a moment ago, by uuid.
    [[nodiscard]] std::vector<heard_bot> heard(time_point now) const;
    [[nodiscard]] std::vector<sounded_bot> sounded() const;

private:
    struct bot {
        std::uint32_t rate = 0;
        bool present = true;
        time_point active_since;  ///< Of a Bot that is sounded and present.
        time_point counted_since; ///< The same, or the latest change of the rate.
        time_point heard_until;   ///< Of one that is not: it is forgotten by then.
        double count = 0;         ///< Up to counted_since.

        [[nodiscard]] bool active() const { return present && rate > 0; }
    };

    void change(bot& which, std::uint32_t rate, bool present, time_point now) const;
    [[nodiscard]] bool is_heard(const bot& which, time_point now) const;
    [[nodiscard]] static double count_at(const bot& which, time_point now);

    const timing times_;
    std::vector<std::string> interfaces_;
    std::map<std::string, bot> bots_;
};

} // namespace peers
