// The reading and the writing pass over identifiers, one after the other, on any object.
#include "client/identifiers.h"

#include <set>

#include "harness.h"
#include "platform/utilities.h"

namespace {

const std::set<std::string> names = {"engine", "bot", "zorvin", "uuid", "service"};

/// What both passes together make of a value: integers come back as they were, strings under an
/// identifier's name become integers, and "bots" that is an integer becomes a string.
void change(json::value& value, const std::string& name, json::allocator& memory) {
    if (value.IsObject()) {
        for (auto& member : value.GetObject()) {
            change(member.value, {member.name.GetString(), member.name.GetStringLength()}, memory);
        }
    } else if (value.IsArray()) {
        for (json::value& element : value.GetArray()) {
            if (!element.IsArray()) {
                change(element, name == "bots" ? "bot" : "", memory);
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
    json::document passed = json::parse(input);
    if (expected.IsObject()) {
        change(expected, "", expected.GetAllocator());
        csi_receiver::identifiers_to_text(passed, passed.GetAllocator());
        csi_receiver::identifiers_to_numbers(passed);
        assert(json::write(passed) == json::write(expected));
    }
}
