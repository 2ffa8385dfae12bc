/// The schemas of protocol/schemas, embedded into the program.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/json.h"

namespace contract {

struct schema_file {
    std::string_view name; // such as "command.json"
    std::string_view text;
};

/// Generated from the files at build time.
extern const std::vector<schema_file> schema_files;

/// All schemas as one document: each file is a member of it, and every reference leads from the
/// document's root. Made once; any thread.
[[nodiscard]] const json::document& all_schemas();

/// Lowers integers that need all 64 bits to the largest signed one: the validator takes them for
/// negative. Those in the schemas have been lowered, so messages must be, too.
void lower_large_integers(json::value& in);

/// A schema in that document.
struct place {
    std::string pointer; // from the root, such as "/command.json/definitions/start"
    const json::value* schema;

    /// The schema in the member or element, nothing if there is none. References are followed.
    [[nodiscard]] place child(std::string_view name) const;
    [[nodiscard]] bool exists() const { return schema != nullptr; }
};

/// The schema that the pointer leads to. References are followed.
[[nodiscard]] place find_place(const std::string& pointer);

} // namespace contract
