#include "doctor/routing_checks.h"

#include <cstddef>
#include <iostream>
#include <streambuf>

#include "doctor/routing_items.h"
#include "doctor/text.h"
#include "platform/socket.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

/// Discards what is written to standard output for as long as it lives.
class muted_output {
public:
    muted_output()
        : buffer_(std::cout.rdbuf(nullptr)) {}
    ~muted_output() { std::cout.rdbuf(buffer_); }
    muted_output(const muted_output&) = delete;
    muted_output& operator=(const muted_output&) = delete;

private:
    std::streambuf* buffer_;
};

/// Compares the Bot added last with those before it.
void check_duplicate(csi_receiver::routing_table& table, const std::string& where,
                     report& findings) {
    const csi_receiver::bot_record& bot = table.bots().back();
    if (&*table.find_bot_by_uuid(bot.uuid) != &bot) {
        findings.warn(where,
                      "Bot " + quoted(bot.uuid) +
                          " is in the routing twice: commands reach only the first",
                      "delete one, or give each Bot its own id");
    }
    if (&*table.find_bot_by_hwaddr(bot.hwaddr) != &bot) {
        findings.warn(where, "hwaddr " + quoted(bot.hwaddr) + " is in the routing twice",
                      "delete one, or give each Bot its own hwaddr");
    }
}

/// Returns the number of items. The daemon's own parser decides which ones are accepted.
std::size_t check_items(const std::string& routing, const std::string& where,
                        csi_receiver::routing_table& table, report& findings) {
    std::size_t number = 0;
    for (const std::string& item : csi_receiver::split(routing, ',')) {
        const std::string at = where + ", item " + std::to_string(++number);
        const std::size_t bots_before = table.bots().size();
        read_routing(item, table);
        if (table.bots().size() == bots_before) {
            explain_dropped_item(item, at, findings);
        } else {
            check_accepted_item(item, at, findings);
            check_duplicate(table, at, findings);
        }
    }
    return number;
}

} // namespace

void read_routing(const std::string& routing, csi_receiver::routing_table& table) {
    const muted_output muted;
    table.add_routing(routing);
}

void check_routing(const settings& config, report& findings) {
    const auto found = config.find("routing");
    if (found == config.end()) {
        return;
    }
    const std::string where = line_label(found->second.line, "routing");
    csi_receiver::routing_table table;
    const std::size_t items = check_items(found->second.value, where, table, findings);
    if (table.bots().empty()) {
        findings.fail(where, "no Bot is accepted: the daemon exits with \"error parsing\"",
                      item_form);
        return;
    }
    const std::string& last = table.zorvins().back().address;
    if (!csi_receiver::is_inet_address(last)) {
        findings.fail(where,
                      "the daemon never attaches: it waits for the last core service, " +
                          quoted(last) + ", which is not an IPv4 address",
                      "write its IPv4 address");
    }
    findings.ok(where, "Bots accepted: " + std::to_string(table.bots().size()) + " of " +
                           std::to_string(items) +
                           ", core services: " + std::to_string(table.zorvins().size()));
}

} // namespace csi_doctor
