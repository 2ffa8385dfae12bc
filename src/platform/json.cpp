#include "platform/json.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "daemon/log.h"

namespace json {
namespace {

thread_local const assertion_context* innermost_context = nullptr;

/// Refuses texts that are nested too deeply and numbers too large for a double: the library reads
/// 8e308 as infinity, and its writer would stop the text there.
class bounded_document : public document {
public:
    // NOLINTBEGIN(readability-identifier-naming): the library calls them by these names
    bool StartObject() { return ++depth_ <= max_depth && document::StartObject(); }
    bool StartArray() { return ++depth_ <= max_depth && document::StartArray(); }
    bool EndObject(rapidjson::SizeType count) {
        return --depth_ >= 0 && document::EndObject(count);
    }
    bool EndArray(rapidjson::SizeType count) { return --depth_ >= 0 && document::EndArray(count); }
    bool Double(double number) { return std::isfinite(number) && document::Double(number); }
    // NOLINTEND(readability-identifier-naming)

private:
    int depth_ = 0;
};

value name_reference(std::string_view name) {
    return value(rapidjson::StringRef(name.data(), static_cast<rapidjson::SizeType>(name.size())));
}

} // namespace

assertion_context::assertion_context()
    : outer_(innermost_context) {
    innermost_context = this;
}

assertion_context::~assertion_context() {
    innermost_context = outer_;
}

void assertion_failed(const char* file, int line, const char* expression) {
    if (innermost_context != nullptr) {
        csi_receiver::print_error(innermost_context->describe() + "\n");
    }
    std::fprintf(stderr, "%s:%d: JSON assertion failed: %s\n", file, line, expression);
    std::abort();
}

void* system_memory::Malloc(std::size_t size) {
    return Realloc(nullptr, 0, size);
}

void* system_memory::Realloc(void* memory, std::size_t /*old_size*/, std::size_t new_size) {
    if (new_size == 0) {
        Free(memory);
        return nullptr;
    }
    void* const result = std::realloc(memory, new_size); // NOLINT: as the library allocates
    if (result == nullptr) {
        throw std::bad_alloc();
    }
    return result;
}

document parse(std::string_view text) {
    bounded_document result;
    rapidjson::MemoryStream bytes(text.data(), text.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(bytes);
    // Iterative: threads with small stacks parse replies, too.
    const auto read = [&](const document& /*result*/) {
        rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, system_memory> reader;
        return !reader.Parse<rapidjson::kParseIterativeFlag>(stream, result).IsError();
    };
    result.Populate(read);
    return document(std::move(result)); // drops what only the parser needed
}

std::string write(const value& from) {
    using text_buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, system_memory>;
    text_buffer buffer;
    rapidjson::Writer<text_buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, system_memory> writer(
        buffer);
    from.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

const value* find(const value& object, std::string_view name) {
    const auto member = object.FindMember(name_reference(name));
    return member == object.MemberEnd() ? nullptr : &member->value;
}

value* find(value& object, std::string_view name) {
    const auto member = object.FindMember(name_reference(name));
    return member == object.MemberEnd() ? nullptr : &member->value;
}

std::optional<std::string_view> find_string(const value& object, std::string_view name) {
    const value* member = find(object, name);
    if (member == nullptr || !member->IsString()) {
        return std::nullopt;
    }
    return text_of(*member);
}

std::string_view text_of(const value& string) {
    return {string.GetString(), string.GetStringLength()};
}

std::optional<std::int32_t> find_int(const value& object, std::string_view name) {
    const value* member = find(object, name);
    if (member == nullptr || !member->IsInt()) {
        return std::nullopt;
    }
    return member->GetInt();
}

value make_string(std::string_view text, allocator& memory) {
    return {text.data(), static_cast<rapidjson::SizeType>(text.size()), memory};
}

void set(value& object, std::string_view name, value&& member, allocator& memory) {
    if (value* present = find(object, name)) {
        *present = member;
        return;
    }
    object.AddMember(make_string(name, memory), member, memory);
}

void set(value& object, std::string_view name, std::string_view text, allocator& memory) {
    set(object, name, make_string(text, memory), memory);
}

} // namespace json
