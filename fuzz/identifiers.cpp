// Both passes over identifiers, first the one for reading, then the one for writing, on any object.
#include "client/identifiers.h"

#include <set>

#include "harness.h"
#include "platform/utilities.h"

namespace {

const std::set<std::string> names = {"engine", "bot", "zorvin", "uuid", "service"};

/// Does what both passes should do together: integers stay as they are, strings named like an
/// identifier become integers, and an integer named "bots" becomes a string.
void apply_both(json::value& value, const std::string& name, json::allocator& memory) {
    if (value.IsObject()) {
        for (auto& member : value.GetObject()) {
            apply_both(member.value, {member.name.GetString(), member.name.GetStringLength()},
                       memory);
        }
    } else if (value.IsArray()) {
        for (json::value& element : value.GetArray()) {
            if (!element.IsArray()) {
                apply_both(element, name == "bots" ? "bot" : "", memory);
            }
        }
    } else if (value.IsString() && names.count(name) != 0) {
        value.SetUint64(csi_receiver::parse_decimal(value.GetString()));
    } else if (value.IsUint64() && name == "bots") {
        value = json::make_string(json::write(value), memory);
    }
}

} // namespace

void fuzz::run(const std::string& input) {
    json::document expected = json::parse(input);
    json::document actual = json::parse(input);
    if (expected.IsObject()) {
        apply_both(expected, "", expected.GetAllocator());
        csi_receiver::identifiers_to_text(actual, actual.GetAllocator());
        csi_receiver::identifiers_to_numbers(actual);
        assert(json::write(actual) == json::write(expected));
    }
}
