#include "contract/judge.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "contract/schemas.h"

// After platform/json.h, whose settings hold for the JSON library.
#include <valijson/adapters/rapidjson_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

using adapter = valijson::adapters::GenericRapidJsonAdapter<json::value>;

template<>
struct valijson::adapters::AdapterTraits<adapter> {
    using DocumentType = json::document; // NOLINT(readability-identifier-naming): the library's
};

namespace contract {
namespace {

using path_type = std::vector<std::string>; // names of members, indexes of elements

struct failure {
    path_type path;
    std::string text;
};

bool begins_with(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

/// Compiled schemas by pointer. Compiling one takes longer than using it.
const valijson::Schema& compiled(const std::string& pointer) {
    static std::mutex mutex;
    static std::map<std::string, std::unique_ptr<valijson::Schema>> known;
    const std::lock_guard<std::mutex> lock(mutex);
    std::unique_ptr<valijson::Schema>& schema = known[pointer];
    if (!schema) {
        schema = std::make_unique<valijson::Schema>();
        json::document root;
        root.CopyFrom(all_schemas(), root.GetAllocator());
        json::set(root, "$ref", "#" + pointer, root.GetAllocator());
        valijson::SchemaParser().populateSchema(adapter(root), *schema);
    }
    return *schema;
}

/// Integers are what the JSON library takes for integers: 4.0 is none, as for the daemon.
std::vector<failure> validate(const std::string& pointer, const json::value& message) {
    valijson::Validator validator(valijson::Validator::kStrongTypes);
    valijson::ValidationResults results;
    validator.validate(compiled(pointer), adapter(message), &results);
    std::vector<failure> failures;
    for (const auto& error : results) {
        failure one{{}, error.description};
        // "<root>", "[bots]", "[0]"
        for (std::size_t at = 1; at < error.context.size(); ++at) {
            one.path.push_back(error.context[at].substr(1, error.context[at].size() - 2));
        }
        failures.push_back(std::move(one));
    }
    return failures;
}

/// The member or element of that name.
const json::value* member_of(const json::value& from, const std::string& name) {
    return from.IsArray() ? &from[static_cast<rapidjson::SizeType>(std::stoul(name))]
                          : json::find(from, name);
}

/// What the member at a path breaks.
class broken_schemas {
public:
    broken_schemas(const place& at, const json::value& message, const path_type& path)
        : path_(path) {
        collect(at, message, 0);
    }
    [[nodiscard]] const std::vector<const json::value*>& found() const { return found_; }

private:
    /// `value` is what the first `depth` names of the path lead to.
    void collect(const place& at, const json::value& value, std::size_t depth) {
        if (!at.exists() || !at.schema->IsObject()) {
            return;
        }
        const place all = at.child("allOf");
        for (rapidjson::SizeType index = 0; all.exists() && index < all.schema->Size(); ++index) {
            collect(all.child(std::to_string(index)), value, depth);
        }
        const place condition = at.child("if");
        if (condition.exists()) {
            const bool holds = validate(condition.pointer, value).empty();
            collect(at.child(holds ? "then" : "else"), value, depth);
        }
        if (depth < path_.size()) {
            descend(at, value, depth);
        } else if (!validate(at.pointer, value).empty()) {
            found_.push_back(at.schema);
        }
    }
    void descend(const place& at, const json::value& value, std::size_t depth) {
        const std::string& name = path_[depth];
        const place listed =
            value.IsArray() ? at.child("items") : at.child("properties").child(name);
        collect(listed.exists() ? listed : at.child("additionalProperties"),
                *member_of(value, name), depth + 1);
    }

    const path_type& path_;
    std::vector<const json::value*> found_;
};

/// In words, what the schema itself demands of a value; empty if nothing.
std::string demand(const json::value& schema) {
    static const std::map<std::string_view, std::string> types = {
        {"array", "an array"},     {"boolean", "a boolean"}, {"null", "null"},
        {"integer", "an integer"}, {"object", "an object"},  {"string", "text"}};
    if (const auto title = json::find_string(schema, "title")) {
        return std::string(*title);
    }
    if (const json::value* const constant = json::find(schema, "const")) {
        return json::write(*constant);
    }
    const auto type = json::find_string(schema, "type");
    return type ? types.at(*type) : "";
}

std::string join(const std::string& first, const std::string& second) {
    return first.empty() || second.empty() || first == second ? first + second
                                                              : first + " and " + second;
}

std::string pointer_of(const path_type& path) {
    std::string result;
    for (const std::string& name : path) {
        result += "/" + name;
    }
    return result;
}

/// The last text in quotation marks.
std::string quoted_name(const std::string& text) {
    const std::size_t end = text.rfind('\'');
    const std::size_t begin = text.rfind('\'', end - 1) + 1;
    return text.substr(begin, end - begin);
}

/// The breach that a failure of the validator means.
breach explain(const failure& what, const std::string& pointer, const json::value& message) {
    const std::string path = pointer_of(what.path);
    if (begins_with(what.text, "Missing ")) {
        return {path + "/" + quoted_name(what.text), "present", false};
    }
    if (begins_with(what.text, "Object contains a property")) {
        return {path + "/" + quoted_name(what.text), "absent", false};
    }
    const broken_schemas broken(find_place(pointer), message, what.path);
    breach result{path, "", false};
    for (const json::value* const schema : broken.found()) {
        const std::string wanted = demand(*schema);
        const bool repeated = result.wanted.find(wanted) != std::string::npos;
        result.wanted = repeated ? result.wanted : join(result.wanted, wanted);
        result.fatal = result.fatal || json::find(*schema, "x-fatal") != nullptr;
    }
    return result;
}

/// Whether the failure only says that another one, here or further inside, is there.
bool follows_from_others(const failure& what, const std::vector<failure>& all) {
    return begins_with(what.text, "Failed to validate") &&
           std::any_of(all.begin(), all.end(), [&what](const failure& other) {
               return &other != &what && other.path.size() >= what.path.size() &&
                      std::equal(what.path.begin(), what.path.end(), other.path.begin()) &&
                      (other.path.size() > what.path.size() ||
                       !begins_with(other.text, "Failed to validate"));
           });
}

std::vector<breach> explain_all(const std::string& pointer, const json::value& message) {
    const std::vector<failure> failures = validate(pointer, message);
    std::map<std::string, breach> by_path; // in the order of the paths, one each
    for (const failure& what : failures) {
        if (!follows_from_others(what, failures)) {
            breach one = explain(what, pointer, message);
            by_path.emplace(one.path, one);
        }
    }
    std::vector<breach> result;
    result.reserve(by_path.size());
    for (auto& [path, one] : by_path) {
        result.push_back(std::move(one));
    }
    return result;
}

} // namespace

std::string describe(const breach& what) {
    return (what.path.empty() ? "the message" : what.path) + " must be " + what.wanted +
           (what.fatal ? ": ends the daemon" : "");
}

std::vector<breach> judge(const kind& what, std::string_view text) {
    if (what.family.empty()) {
        return {};
    }
    const std::string family = "/" + what.family + ".json";
    const std::string pointer =
        what.message.empty() ? family : family + "/definitions/" + what.message;
    const place schema = find_place(pointer);
    if (!schema.exists()) {
        return {{"", "absent: there is no " + name_of(what), false}};
    }
    const json::value* const limit = json::find(*find_place(family).schema, "x-max-bytes");
    if (limit != nullptr && text.size() > limit->GetUint()) {
        return {{"", "at most " + std::to_string(limit->GetUint()) + " bytes long", false}};
    }
    json::document message = json::parse(text);
    if (!message.IsObject()) {
        return {{"", "a JSON object", false}};
    }
    lower_large_integers(message);
    std::vector<breach> breaches = explain_all(pointer, message);
    if (what.message.empty() && !breaches.empty()) {
        return {{"", "one of the messages in " + what.family + ".json", false}};
    }
    return breaches;
}

} // namespace contract
