#include "doctor/routing_checks.h"

#include <iostream>
#include <streambuf>

#include "doctor/routing_items.h"
#include "platform/socket.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

/// Standard output without effect, as long as it lives.
class muted_output {
public:
    muted_output()
        : own_(std::cout.rdbuf(nullptr)) {}
    ~muted_output() { std::cout.rdbuf(own_); }
    muted_output(const muted_output&) = delete;
    muted_output& operator=(const muted_output&) = delete;

private:
    std::streambuf* own_;
};

void check_duplicate(csi_receiver::routing_table& table, const std::string& where, report& to) {
    const csi_receiver::bot_record& bot = table.bots().back();
    if (&*table.find_bot_by_uuid(bot.uuid) != &bot) {
        to.warn(where,
                "Bot " + quoted(bot.uuid) + " is routed twice: commands reach the first only",
                "delete one, or give each Bot an id of its own");
    }
    if (&*table.find_bot_by_hwaddr(bot.hwaddr) != &bot) {
        to.warn(where, "hwaddr " + quoted(bot.hwaddr) + " is routed twice",
                "delete one, or give each Bot its own hwaddr");
    }
}

} // namespace

void read_routing(const std::string& routing, csi_receiver::routing_table& into) {
    const muted_output quiet;
    into.add_routing(routing);
}

void check_routing(const settings& from, report& to) {
    const auto found = from.find("routing");
    if (found == from.end()) {
        return;
    }
    const std::string where = place(found->second.line, "routing");
    csi_receiver::routing_table table;
    std::size_t number = 0;
    for (const std::string& item : csi_receiver::split(found->second.value, ',')) {
        const std::string at = where + ", item " + std::to_string(++number);
        const std::size_t before = table.bots().size();
        read_routing(item, table); // whether an item is taken is the daemon's own decision
        if (table.bots().size() == before) {
            explain_dropped_item(item, at, to);
        } else {
            check_taken_item(item, at, to);
            check_duplicate(table, at, to);
        }
    }
    if (table.bots().empty()) {
        to.fail(where, "no Bot is left: the daemon ends with \"error parsing\"", item_form);
        return;
    }
    const std::string& last = table.zorvins().back().address;
    if (!csi_receiver::is_inet_address(last)) {
        to.fail(where,
                "the last core service, " + quoted(last) +
                    ", is the one that the daemon waits for without limit, and cannot be asked",
                "write its IPv4 address");
    }
    to.ok(where, std::to_string(table.bots().size()) + " of " + std::to_string(number) +
                     " Bots taken, core services: " + std::to_string(table.zorvins().size()));
}

} // namespace csi_doctor
