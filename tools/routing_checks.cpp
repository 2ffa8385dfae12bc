#include "tools/routing_checks.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <streambuf>
#include <vector>

#include "platform/socket.h"
#include "platform/utilities.h"
#include "tools/value_checks.h"

namespace csi_doctor {
namespace {

constexpr std::size_t field_count = 4;
constexpr std::size_t hwaddr_digits = 12;
constexpr std::size_t longest_ifname = 15; // of the Linux kernel's
constexpr const char* form = "write ID:ADDRESS:INTERFACE:HWADDR, such as "
                             "101:127.0.0.1:wlan0:020000000065";

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

bool is_hex_digit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

std::string hex_digits_of(const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), is_hex_digit);
    return digits;
}

/// How to write a hwaddr that has its digits, but something between them.
std::string hwaddr_remedy(const std::string& written) {
    const std::string digits = hex_digits_of(written);
    return digits.size() == hwaddr_digits ? "write " + digits
                                          : "write the 12 hexadecimal digits without colons";
}

void explain_dropped_item(const std::string& item, const std::string& where, report& to) {
    const std::vector<std::string> fields = csi_receiver::split(item, ':');
    const std::string count = std::to_string(fields.size());
    const std::string start = "left out: " + quoted(item) + " has ";
    if (fields.size() > field_count) {
        std::string tail;
        for (std::size_t at = field_count - 1; at < fields.size(); ++at) {
            tail += (tail.empty() ? "" : ":") + fields[at];
        }
        if (hex_digits_of(tail).size() == hwaddr_digits) {
            to.fail(where, start + "colons in the hwaddr", hwaddr_remedy(tail));
        } else {
            to.fail(where, start + count + " fields instead of 4",
                    std::string(form) + "; a comma goes between two Bots");
        }
    } else if (fields.size() == field_count) {
        to.fail(where,
                start + "a hwaddr of " + std::to_string(fields[3].size()) +
                    " characters instead of 12",
                hwaddr_remedy(fields[3]));
    } else {
        to.fail(where, start + count + " fields that are not empty, instead of 4",
                std::string(form) + (fields.size() == field_count - 1
                                         ? " (the daemon's own hint wrongly shows three fields)"
                                         : ""));
    }
}

void check_taken_item(const std::vector<std::string>& fields, const std::string& where,
                      report& to) {
    const std::string fault = identifier_fault(fields[0]);
    if (!fault.empty()) {
        to.fail(where,
                "the id " + quoted(fields[0]) + " " + fault + ", so no command finds the Bot",
                identifier_remedy);
    }
    if (!csi_receiver::is_inet_address(fields[1])) {
        to.fail(where,
                "the address " + quoted(fields[1]) +
                    " is not IPv4: every request to its core service fails without a line in the "
                    "log",
                "write the IPv4 address of the Bot's core service, without blanks");
    }
    if (fields[2].size() > longest_ifname || fields[2].find_first_of(" \t/") != std::string::npos) {
        to.warn(
            where, quoted(fields[2]) + " cannot be the name of a network interface",
            "write the access point's interface as \"ip link\" shows it, 15 characters at most");
    }
    if (!std::all_of(fields[3].begin(), fields[3].end(), is_hex_digit)) {
        to.fail(where,
                "the hwaddr " + quoted(fields[3]) +
                    " is taken, but its characters are not all hexadecimal: the Bot is never heard",
                "write the 12 hexadecimal digits without colons");
    }
}

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
            check_taken_item(csi_receiver::split(item, ':'), at, to);
            check_duplicate(table, at, to);
        }
    }
    if (table.bots().empty()) {
        to.fail(where, "no Bot is left: the daemon ends with \"error parsing\"", form);
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
