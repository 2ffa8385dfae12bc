#include "doctor/routing_items.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <vector>

#include <net/if.h>

#include "doctor/addresses.h"
#include "doctor/identity.h"
#include "doctor/sample_checks.h"
#include "doctor/text.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

using field_list = std::vector<std::string>;

constexpr std::size_t field_count = 4;
constexpr std::size_t hwaddr_digits = 12;
constexpr std::size_t max_ifname_size = IF_NAMESIZE - 1; // without the terminator
constexpr const char* never_heard = ": the Bot is never heard";
constexpr std::string_view brackets = "()[]{}<>";

bool is_hex_digit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool has_0x(const std::string& hwaddr) {
    return hwaddr.compare(0, 2, "0x") == 0 || hwaddr.compare(0, 2, "0X") == 0;
}

std::string hex_digits_of(const std::string& hwaddr) {
    std::string digits;
    std::copy_if(hwaddr.begin() + (has_0x(hwaddr) ? 2 : 0), hwaddr.end(),
                 std::back_inserter(digits), is_hex_digit);
    return digits;
}

/// The hwaddr to write instead, if its digits are all there.
std::string hwaddr_remedy(const std::string& written) {
    const std::string digits = hex_digits_of(written);
    return digits.size() == hwaddr_digits ? "write " + digits
                                          : "write the 12 hexadecimal digits, without 0x or colons";
}

/// The first thing in it that is not a hexadecimal digit, as a clause; empty when there is none.
std::string hwaddr_fault(const std::string& hwaddr) {
    if (has_0x(hwaddr)) {
        return "begins with " + in_quotes(hwaddr.substr(0, 2));
    }
    const auto odd = std::find_if_not(hwaddr.begin(), hwaddr.end(), is_hex_digit);
    return odd == hwaddr.end() ? "" : "contains " + in_quotes(std::string(1, *odd));
}

std::string join(const field_list& fields, std::size_t first = 0) {
    std::string text;
    for (std::size_t at = first; at < fields.size(); ++at) {
        text += (text.empty() ? "" : ":") + fields[at];
    }
    return text;
}

std::string without_brackets(const std::string& item) {
    const std::size_t first = item.find_first_not_of(brackets);
    return first == std::string::npos
               ? ""
               : item.substr(first, item.find_last_not_of(brackets) - first + 1);
}

/// The item's fields without the white space and brackets around them, and without empty ones.
field_list tidy_fields(const std::string& item) {
    field_list fields;
    for (const std::string& field :
         csi_receiver::split(without_brackets(csi_receiver::trim(item)), ':')) {
        fields.push_back(csi_receiver::trim(field));
    }
    fields.erase(std::remove(fields.begin(), fields.end(), ""), fields.end());
    return fields;
}

/// Reports brackets around the item and white space around its fields.
void check_surroundings(const std::string& item, const field_list& tidy, const std::string& effect,
                        const place& where, report& findings) {
    if (join(tidy) == join(csi_receiver::split(item, ':'))) {
        return;
    }
    const std::string trimmed = csi_receiver::trim(item);
    const bool bracketed = without_brackets(trimmed) != trimmed;
    const bool good = tidy.size() == field_count && tidy.back().size() == hwaddr_digits;
    findings.fail(bracketed ? "item_brackets"_code : "item_white_space"_code, where,
                  effect + ": " + in_quotes(item) + " has " +
                      (bracketed ? "brackets around it" : "white space around its fields"),
                  good ? "write " + printable(join(tidy)) : item_form);
}

void explain_hwaddr_size(const std::string& hwaddr, const std::string& start, const place& where,
                         report& findings) {
    const std::string fault = hwaddr_fault(hwaddr);
    findings.fail("item_hwaddr_size"_code, where,
                  start + "a hwaddr of " + counted(hwaddr.size(), "character") + " instead of 12" +
                      (fault.empty() ? "" : ", which " + fault),
                  hwaddr_remedy(hwaddr));
}

void explain_many_fields(const field_list& fields, const std::string& start, const place& where,
                         report& findings) {
    const std::string tail = join(fields, field_count - 1);
    if (hex_digits_of(tail).size() == hwaddr_digits) {
        findings.fail("item_hwaddr_colons"_code, where, start + "colons in the hwaddr",
                      hwaddr_remedy(tail));
    } else {
        findings.fail("item_many_fields"_code, where,
                      start + counted(fields.size(), "field") + " instead of 4",
                      std::string(item_form) + "; separate Bots with commas");
    }
}

void explain_few_fields(std::size_t count, const std::string& start, const place& where,
                        report& findings) {
    const char* about_hint =
        count == field_count - 1 ? " (the daemon's own hint wrongly shows three fields)" : "";
    findings.fail("item_few_fields"_code, where,
                  start + counted(count, "non-empty field") + " instead of 4",
                  std::string(item_form) + about_hint);
}

void check_id(const std::string& id, const place& where, report& findings) {
    const identity bot = parse_identity(id);
    if (bot.fault == identity_fault::none) {
        return;
    }
    const bool reachable = bot.text == bot.number;
    findings.fail("item_id_invalid"_code, where,
                  "the id " + in_quotes(id) + " " + describe(bot.fault) +
                      ": the server knows the Bot as " + bot.number +
                      (reachable ? "" : ", and no command reaches it"),
                  identity_remedy);
}

void check_address(const std::string& address, const place& where, report& findings) {
    const std::string start = "the address " + in_quotes(address) + " ";
    if (const auto fault = find_core_address_fault(address)) {
        findings.fail(fault->code, where, start + fault->kind + fault->effect, fault->remedy);
    } else if (const std::string block(documentation_block(address)); !block.empty()) {
        findings.warn("item_address_documentation"_code, where,
                      start + "is one for documentation (" + block + ")",
                      "write the address of the Bot's core service");
    }
}

void check_ifname(const std::string& ifname, const place& where, report& findings) {
    if (ifname.size() > max_ifname_size || ifname.find_first_of(" \t/") != std::string::npos) {
        findings.warn("item_interface_name"_code, where,
                      in_quotes(ifname) + " cannot be the name of a network interface",
                      "write the access point's interface as \"ip link\" shows it, at most " +
                          counted(max_ifname_size, "character"));
    }
}

void check_hwaddr(const std::string& hwaddr, const place& where, report& findings) {
    const std::string start = "the hwaddr " + in_quotes(hwaddr) + " is accepted, but ";
    const std::string fault = hwaddr_fault(hwaddr);
    if (!fault.empty()) {
        findings.fail("item_hwaddr_not_hex"_code, where, start + fault + never_heard,
                      hwaddr_remedy(hwaddr));
    } else if (hwaddr.find_first_not_of('0') == std::string::npos) {
        findings.fail("item_hwaddr_zeros"_code, where, start + "is all zeros" + never_heard,
                      "replace this placeholder with the Bot's own hardware address");
    } else if (hwaddr.find_first_not_of("fF") == std::string::npos) {
        findings.fail("item_hwaddr_broadcast"_code, where,
                      start + "is the broadcast address" + never_heard,
                      "write the hardware address of one Bot; each Bot has its own item");
    } else if (std::string_view("13579bBdDfF").find(hwaddr[1]) != std::string_view::npos) {
        findings.fail("item_hwaddr_group"_code, where,
                      start + "is the address of a group, as its second digit is odd" + never_heard,
                      "correct the second digit: that of a single station is even");
    }
}

} // namespace

void explain_dropped_item(const std::string& item, const place& where, report& findings) {
    const field_list fields = tidy_fields(item);
    if (fields.empty()) {
        findings.warn("item_empty"_code, where, "ignored: there is nothing in " + in_quotes(item),
                      "delete one comma");
        return;
    }
    check_surroundings(item, fields, "ignored", where, findings);
    const std::string start = "ignored: " + in_quotes(item) + " has ";
    if (fields.size() > field_count) {
        explain_many_fields(fields, start, where, findings);
    } else if (fields.size() < field_count) {
        explain_few_fields(fields.size(), start, where, findings);
    } else if (fields[3].size() != hwaddr_digits) {
        explain_hwaddr_size(fields[3], start, where, findings);
    }
}

void check_accepted_item(const std::string& item, const place& where, report& findings) {
    const field_list fields = tidy_fields(item);
    check_surroundings(item, fields, "accepted, but the Bot cannot be reached", where, findings);
    if (fields.size() != field_count) {
        return;
    }
    check_id(fields[0], where, findings);
    check_address(fields[1], where, findings);
    check_ifname(fields[2], where, findings);
    check_hwaddr(fields[3], where, findings);
}

void check_sample_bot(const std::string& item, const place& where, report& findings) {
    const std::string hwaddr = tidy_fields(item).back();
    if (is_sample_hwaddr(hwaddr)) {
        findings.warn("item_of_sample"_code, where,
                      "the hwaddr " + in_quotes(hwaddr) +
                          " is that of a Bot in the sample configuration",
                      "write your own Bot instead, with its own hardware address");
    }
}

} // namespace csi_doctor
