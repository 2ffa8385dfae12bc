/// The routing table: the Bots that this access point serves, and the Zorvins that reach them.
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

/// A Zorvin: the address of its core service, and the interfaces that its Bots use.
struct zorvin_entry {
    explicit zorvin_entry(std::string address_text)
        : address(std::move(address_text)) {}

    const std::string address;           // of the core service, as written in the configuration
    std::vector<std::string> interfaces; // distinct, in the order first seen
    std::vector<bot_record*> bots;       // in the order of the configuration
};

/// A Bot. It never moves once it is in the table: references to it stay valid.
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
    std::vector<std::string> engines;  // running for this Bot; main thread only
    std::atomic<bool> sounding{false}; // requested by the server, not by a scan
    std::atomic<bool> found{false};    // by the latest scan
};

/// Zorvins and Bots in the order of the configuration. Filled on the main thread at start-up; after
/// that only the Bots' engines and flags change.
class routing_table {
public:
    using bots_type = std::deque<bot_record>;

    /// Parses "bot:zorvin:interface:hwaddr" items separated by ",". Accepted items are logged,
    /// malformed ones dropped silently.
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
    // The first record of each name; the keys are views of the records' strings.
    std::unordered_map<std::string_view, zorvin_entry*> zorvin_by_address_;
    std::unordered_map<std::string_view, std::size_t> bot_by_uuid_;
};

} // namespace csi_receiver
