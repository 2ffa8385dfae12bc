/// The routing table: the Bots that this access point serves, and the Zorvins they are reached by.
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace csi_receiver {

struct bot_record;

/// A Zorvin: where its core service is reached, and the interfaces that its Bots use.
struct zorvin_entry {
    explicit zorvin_entry(std::string address_text)
        : address(std::move(address_text)) {}

    const std::string address;           // IPv4 literal, as the configuration has it
    std::vector<std::string> interfaces; // distinct, in the order first seen
    std::vector<bot_record*> bots;       // those reached by it, in their order
};

/// A Bot. Never moves once it is in the table, so references to it stay valid.
struct bot_record {
    bot_record(std::string hwaddr_text, std::string uuid_text, std::string interface_name,
               const zorvin_entry& zorvin_of_bot)
        : hwaddr(std::move(hwaddr_text))
        , uuid(std::move(uuid_text))
        , ifname(std::move(interface_name))
        , zorvin(zorvin_of_bot) {}

    const std::string hwaddr; // "aa:bb:cc:dd:ee:ff"
    const std::string uuid;
    const std::string ifname;
    const zorvin_entry& zorvin;
    std::vector<std::string> engines;  // types that need the Bot's sounding; main thread only
    std::atomic<bool> sounding{false}; // sounding was asked for by the server, not by a scan
    std::atomic<bool> found{false};    // seen by the present scan
};

/// Zorvins and Bots in the order of the configuration. Filled on the main thread at start-up; after
/// that only the Bots' engines and flags change.
class routing_table {
public:
    using bots_type = std::deque<bot_record>;

    /// Reads "bot:zorvin:interface:hwaddr" items separated by ",". Items of another form are
    /// dropped silently, accepted ones are logged.
    void add_routing(const std::string& routing);

    /// The first Bot with exactly this uuid or hwaddr, or bots().end().
    [[nodiscard]] bots_type::iterator find_bot_by_uuid(const std::string& uuid);
    [[nodiscard]] bots_type::iterator find_bot_by_hwaddr(const std::string& hwaddr);

    [[nodiscard]] const std::deque<zorvin_entry>& zorvins() const { return zorvins_; }
    [[nodiscard]] bots_type& bots() { return bots_; }

private:
    void add_item(const std::vector<std::string>& fields);
    zorvin_entry& zorvin_at(const std::string& address);

    std::deque<zorvin_entry> zorvins_;
    bots_type bots_;
    // What was routed first under a name; the names are those in the records, which never move.
    std::unordered_map<std::string_view, zorvin_entry*> zorvin_by_address_;
    std::unordered_map<std::string_view, std::size_t> bot_by_uuid_;
};

} // namespace csi_receiver
