#include "doctor/routing_items.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>
#include <vector>

#include "doctor/identity.h"
#include "platform/socket.h"
#include "platform/utilities.h"

namespace csi_doctor {
namespace {

using fields_type = std::vector<std::string>;

constexpr std::size_t field_count = 4;
constexpr std::size_t hwaddr_digits = 12;
constexpr std::size_t longest_ifname = 15; // of the Linux kernel's
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

/// How to write a hwaddr that has its digits, but something between them.
std::string hwaddr_remedy(const std::string& written) {
    const std::string digits = hex_digits_of(written);
    return digits.size() == hwaddr_digits
               ? "write " + digits
               : "write the 12 hexadecimal digits, without 0x and colons";
}

/// What in it is no hexadecimal digit, as a clause; empty when nothing is.
std::string hwaddr_fault(const std::string& hwaddr) {
    if (has_0x(hwaddr)) {
        return "begins with " + quoted(hwaddr.substr(0, 2));
    }
    const auto odd = std::find_if_not(hwaddr.begin(), hwaddr.end(), is_hex_digit);
    return odd == hwaddr.end() ? "" : "has the character " + quoted(std::string(1, *odd));
}

std::string join(const fields_type& fields, std::size_t from) {
    std::string text;
    for (std::size_t at = from; at < fields.size(); ++at) {
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

/// The item's fields without blanks and brackets around them.
fields_type tidy_fields(const std::string& item) {
    fields_type fields;
    for (const std::string& field :
         csi_receiver::split(without_brackets(csi_receiver::trim(item)), ':')) {
        fields.push_back(csi_receiver::trim(field));
    }
    fields.erase(std::remove(fields.begin(), fields.end(), ""), fields.end());
    return fields;
}

/// Tells whatever is around the item or its fields and belongs to none.
void explain_surroundings(const std::string& item, const fields_type& tidy,
                          const std::string& effect, const std::string& where, report& to) {
    if (join(tidy, 0) == join(csi_receiver::split(item, ':'), 0)) {
        return;
    }
    const std::string trimmed = csi_receiver::trim(item);
    const bool bracketed = without_brackets(trimmed) != trimmed;
    const bool good = tidy.size() == field_count && tidy.back().size() == hwaddr_digits;
    to.fail(where,
            effect + ": " + quoted(item) +
                (bracketed ? " has brackets around it" : " has blanks around its fields"),
            good ? "write " + printable(join(tidy, 0)) : item_form);
}

void explain_hwaddr_size(const std::string& hwaddr, const std::string& start,
                         const std::string& where, report& to) {
    const std::string fault = hwaddr_fault(hwaddr);
    to.fail(where,
            start + "a hwaddr of " + std::to_string(hwaddr.size()) + " characters instead of 12" +
                (fault.empty() ? "" : ", which " + fault),
            hwaddr_remedy(hwaddr));
}

void explain_many_fields(const fields_type& fields, const std::string& start,
                         const std::string& where, report& to) {
    const std::string tail = join(fields, field_count - 1);
    if (hex_digits_of(tail).size() == hwaddr_digits) {
        to.fail(where, start + "colons in the hwaddr", hwaddr_remedy(tail));
    } else {
        to.fail(where, start + std::to_string(fields.size()) + " fields instead of 4",
                std::string(item_form) + "; a comma goes between two Bots");
    }
}

void explain_few_fields(std::size_t count, const std::string& start, const std::string& where,
                        report& to) {
    to.fail(where,
            start + std::to_string(count) +
                (count == 1 ? " field that is not empty, instead of 4"
                            : " fields that are not empty, instead of 4"),
            std::string(item_form) + (count == field_count - 1
                                          ? " (the daemon's own hint wrongly shows three fields)"
                                          : ""));
}

void check_id(const std::string& id, const std::string& where, report& to) {
    const identity taken = read_identity(id);
    if (taken.fault.empty()) {
        return;
    }
    const std::string what = "the id " + quoted(id) + " " + taken.fault;
    if (taken.text == taken.number) {
        to.fail(where, what + ": the Bot is known as " + taken.number, identity_remedy);
    } else {
        to.fail(where,
                what + ": the server is told " + taken.number + ", and no command finds the Bot",
                identity_remedy);
    }
}

} // namespace

void explain_dropped_item(const std::string& item, const std::string& where, report& to) {
    const fields_type fields = tidy_fields(item);
    if (fields.empty()) {
        to.warn(where, "left out: there is nothing in " + quoted(item), "delete one comma");
        return;
    }
    explain_surroundings(item, fields, "left out", where, to);
    const std::string start = "left out: " + quoted(item) + " has ";
    if (fields.size() > field_count) {
        explain_many_fields(fields, start, where, to);
    } else if (fields.size() < field_count) {
        explain_few_fields(fields.size(), start, where, to);
    } else if (fields[3].size() != hwaddr_digits) {
        explain_hwaddr_size(fields[3], start, where, to);
    }
}

void check_taken_item(const std::string& item, const std::string& where, report& to) {
    const fields_type fields = tidy_fields(item);
    explain_surroundings(item, fields, "taken, but the Bot cannot be reached", where, to);
    if (fields.size() != field_count) {
        return;
    }
    check_id(fields[0], where, to);
    if (!csi_receiver::is_inet_address(fields[1])) {
        to.fail(where,
                "the address " + quoted(fields[1]) +
                    " is not IPv4: every request to its core service fails without a line in the "
                    "log",
                "write the IPv4 address of the Bot's core service");
    }
    if (fields[2].size() > longest_ifname || fields[2].find_first_of(" \t/") != std::string::npos) {
        to.warn(
            where, quoted(fields[2]) + " cannot be the name of a network interface",
            "write the access point's interface as \"ip link\" shows it, 15 characters at most");
    }
    const std::string fault = hwaddr_fault(fields[3]);
    if (!fault.empty()) {
        to.fail(where,
                "the hwaddr " + quoted(fields[3]) + " is taken, but " + fault +
                    ": the Bot is never heard",
                hwaddr_remedy(fields[3]));
    }
}

} // namespace csi_doctor
