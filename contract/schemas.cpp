#include "contract/schemas.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace contract {
namespace {

constexpr std::string_view reference_name = "$ref";

/// "common.json#/definitions/rate", or "#/definitions/rate" in that file, as
/// "#/common.json/definitions/rate".
std::string from_root(std::string_view reference, std::string_view file) {
    const std::size_t end = reference.find('#');
    const std::string_view target = end == 0 ? file : reference.substr(0, end);
    return "#/" + std::string(target) + std::string(reference.substr(end + 1));
}

void rewrite_references(json::value& schema, std::string_view file, json::allocator& memory) {
    if (schema.IsArray()) {
        for (json::value& element : schema.GetArray()) {
            rewrite_references(element, file, memory);
        }
    } else if (schema.IsObject()) {
        schema.RemoveMember("$id"); // references would be relative to it
        for (auto& member : schema.GetObject()) {
            if (json::text_of(member.name) == reference_name) {
                const std::string target = from_root(json::text_of(member.value), file);
                member.value = json::make_string(target, memory);
            } else {
                rewrite_references(member.value, file, memory);
            }
        }
    }
}

json::document bundle() {
    json::document all(rapidjson::kObjectType);
    json::allocator& memory = all.GetAllocator();
    for (const schema_file& file : schema_files) {
        json::value schema;
        schema.CopyFrom(json::parse(file.text), memory);
        rewrite_references(schema, file.name, memory);
        json::set(all, file.name, std::move(schema), memory);
    }
    lower_large_integers(all);
    return all;
}

const json::value* step(const json::value& from, std::string_view name) {
    if (from.IsObject()) {
        return json::find(from, name);
    }
    const std::size_t index = std::strtoul(std::string(name).c_str(), nullptr, 10);
    return from.IsArray() && index < from.Size() ? &from[static_cast<rapidjson::SizeType>(index)]
                                                 : nullptr;
}

place follow_references(const place& at) {
    const auto reference = at.exists() && at.schema->IsObject()
                               ? json::find_string(*at.schema, reference_name)
                               : std::nullopt;
    return reference ? find_place(std::string(reference->substr(1))) : at;
}

} // namespace

const json::document& all_schemas() {
    static const json::document all = bundle();
    return all;
}

void lower_large_integers(json::value& in) {
    if (in.IsUint64() && !in.IsInt64()) {
        in.SetInt64(std::numeric_limits<std::int64_t>::max());
    } else if (in.IsArray()) {
        for (json::value& element : in.GetArray()) {
            lower_large_integers(element);
        }
    } else if (in.IsObject()) {
        for (auto& member : in.GetObject()) {
            lower_large_integers(member.value);
        }
    }
}

place place::child(std::string_view name) const {
    const json::value* const found = exists() ? step(*schema, name) : nullptr;
    return follow_references({pointer + "/" + std::string(name), found});
}

place find_place(const std::string& pointer) {
    place at{"", &all_schemas()};
    for (std::size_t begin = 1; begin < pointer.size();) {
        const std::size_t end = std::min(pointer.find('/', begin), pointer.size());
        at = at.child(std::string_view(pointer).substr(begin, end - begin));
        begin = end + 1;
    }
    return at;
}

} // namespace contract
