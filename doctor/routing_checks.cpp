#include "doctor/routing_checks.h"

#include <cstddef>
#include <iostream>
#include <streambuf>

#include "doctor/addresses.h"
#include "doctor/routing_items.h"
#include "doctor/sample_checks.h"
#include "doctor/text.h"
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

place at_item(place routing, std::size_t number) {
    routing.text += ", item " + std::to_string(number);
    routing.item = number;
    return routing;
}

/// Compares the Bot added last with those before it.
void check_duplicate(csi_receiver::routing_table& table, const place& where, report& findings) {
    const csi_receiver::bot_record& bot = table.bots().back();
    if (&*table.find_bot_by_uuid(bot.uuid) != &bot) {
        findings.warn("routing_id_twice"_code, where,
                      "Bot " + in_quotes(bot.uuid) +
                          " is in the routing twice: commands reach only the first",
                      "delete one, or give each Bot its own id");
    }
    if (&*table.find_bot_by_hwaddr(bot.hwaddr) != &bot) {
        findings.warn("routing_hwaddr_twice"_code, where,
                      "hwaddr " + in_quotes(bot.hwaddr) + " is in the routing twice",
                      "delete one, or give each Bot its own hwaddr");
    }
}

/// Returns the number of items. The daemon's own parser decides which ones are accepted.
std::size_t check_items(const std::string& routing, const place& where, bool sample_expected,
                        csi_receiver::routing_table& table, report& findings) {
    std::size_t number = 0;
    for (const std::string& item : csi_receiver::split(routing, ',')) {
        const place at = at_item(where, ++number);
        const std::size_t bots_before = table.bots().size();
        read_routing(item, table);
        if (table.bots().size() == bots_before) {
            explain_dropped_item(item, at, findings);
        } else {
            check_accepted_item(item, at, findings);
            check_duplicate(table, at, findings);
            if (!sample_expected) {
                check_sample_bot(item, at, findings);
            }
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
    const place where = at_line(found->second.line, "routing");
    csi_receiver::routing_table table;
    const std::size_t items =
        check_items(found->second.value, where, is_for_lab(config), table, findings);
    if (table.bots().empty()) {
        findings.fail("routing_no_bot"_code, where,
                      "no Bot is accepted: the daemon exits with \"error parsing\"", item_form);
        return;
    }
    const std::string& last = table.zorvins().back().address;
    if (const auto fault = find_core_address_fault(last)) {
        findings.fail("routing_last_core_unusable"_code, where,
                      "the daemon never attaches: it waits for the last core service, " +
                          in_quotes(last) + ", which " + fault->kind,
                      "write its IPv4 address");
    }
    findings.ok("routing_ok"_code, where,
                "Bots accepted: " + std::to_string(table.bots().size()) + " of " +
                    std::to_string(items) +
                    ", core services: " + std::to_string(table.zorvins().size()));
}

} // namespace csi_doctor
