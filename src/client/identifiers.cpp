#include "client/identifiers.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/utilities.h"

namespace csi_receiver {
namespace {

constexpr std::array<std::string_view, 5> identifier_names = {"engine", "bot", "zorvin", "uuid",
                                                              "service"};
constexpr std::string_view list_name = "bots";

bool names_identifier(std::string_view name) {
    return std::find(identifier_names.begin(), identifier_names.end(), name) !=
           identifier_names.end();
}

void number_to_text(json::value& number, json::allocator& memory) {
    number = json::make_string(std::to_string(number.GetUint64()), memory);
}

void text_to_number(json::value& text) {
    text.SetUint64(parse_decimal(json::text_of(text)));
}

} // namespace

void identifiers_to_text(json::value& object, json::allocator& memory) {
    for (auto& member : object.GetObject()) {
        const std::string_view name = json::text_of(member.name);
        json::value& value = member.value;
        if (value.IsObject()) {
            identifiers_to_text(value, memory);
        } else if (value.IsUint64() && (names_identifier(name) || name == list_name)) {
            number_to_text(value, memory);
        } else if (value.IsArray()) {
            for (json::value& element : value.GetArray()) {
                if (element.IsObject()) {
                    identifiers_to_text(element, memory);
                } else if (element.IsUint64() && name == list_name) {
                    number_to_text(element, memory);
                }
            }
        }
    }
}

void identifiers_to_numbers(json::value& object) {
    for (auto& member : object.GetObject()) {
        const std::string_view name = json::text_of(member.name);
        json::value& value = member.value;
        if (value.IsObject()) {
            identifiers_to_numbers(value);
        } else if (value.IsString() && names_identifier(name)) {
            text_to_number(value);
        } else if (value.IsArray()) {
            for (json::value& element : value.GetArray()) {
                if (element.IsObject()) {
                    identifiers_to_numbers(element);
                } else if (element.IsString() && name == list_name) {
                    text_to_number(element);
                }
            }
        }
    }
}

} // namespace csi_receiver
