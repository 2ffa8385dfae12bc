/// Models the radio of one access point: its interfaces, which Bots it sounds and which it hears.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace peers {

/// For one thread at a time. The caller passes the time, which must not go backwards.
class radio {
public:
    using time_point = std::chrono::steady_clock::time_point;

    struct timing {
        std::chrono::milliseconds appear_after{1500}; // of sounding until a Bot is heard
        std::chrono::milliseconds vanish_after{3000}; // without it until it is no longer heard
    };
    struct heard_bot {
        std::string uuid;
        std::uint32_t count; // of measurements, at least 1
    };
    struct sounded_bot {
        std::string uuid;
        std::uint32_t rate;
    };

    explicit radio(timing times);

    void add_interface(const std::string& name);
    /// False when there is no such interface.
    [[nodiscard]] bool del_interface(const std::string& name);
    [[nodiscard]] const std::vector<std::string>& interfaces() const { return interfaces_; }

    /// Sounds a Bot, which is present unless set_present said otherwise. Rate 0 stops the sounding.
    void sound(const std::string& uuid, std::uint32_t rate, time_point now);
    void set_present(const std::string& uuid, bool present, time_point now);

    /// Both by uuid.
    [[nodiscard]] std::vector<heard_bot> heard(time_point now) const;
    [[nodiscard]] std::vector<sounded_bot> sounded() const;
    /// The uuids of the Bots that set_present took away.
    [[nodiscard]] std::vector<std::string> absent() const;

private:
    struct bot {
        std::uint32_t rate = 0;
        bool present = true;
        time_point active_since;  // while active
        time_point heard_until;   // while not active
        time_point counted_since; // the last change
        double count = 0;         // of measurements up to then

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
