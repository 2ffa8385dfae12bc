/// JSON documents and the few operations on them that the daemon needs.
/// The only file that includes the JSON library, so that all code gets the same settings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace json {

/// Prints the failed assertion to standard error, after what the thread's assertion_context
/// describes, and ends the process.
[[noreturn]] void assertion_failed(const char* file, int line, const char* expression);

} // namespace json

// Reading a member of the wrong type ends the process on purpose, in release builds too: the
// library's own default would follow NDEBUG.
#define RAPIDJSON_ASSERT(x)                                                                        \
    (static_cast<bool>(x) ? static_cast<void>(0) : ::json::assertion_failed(__FILE__, __LINE__, #x))
#define RAPIDJSON_HAS_STDSTRING 1
// On 32-bit machines the library aligns to 4 bytes, but its values hold 64-bit numbers. Processors
// that need those at multiples of 8 end the process otherwise.
#define RAPIDJSON_ALIGN(x) (((x) + std::size_t{7}) & ~std::size_t{7})

#include <rapidjson/document.h>

namespace json {

/// The system's memory for the library, which does not check for a null pointer: throws
/// std::bad_alloc instead of returning one.
struct system_memory {
    // NOLINTBEGIN(readability-identifier-naming): the library calls them by these names
    static constexpr bool kNeedFree = true;
    static void* Malloc(std::size_t size);
    static void* Realloc(void* memory, std::size_t old_size, std::size_t new_size);
    static void Free(void* memory) noexcept { std::free(memory); } // NOLINT: as the library frees
    // NOLINTEND(readability-identifier-naming)
};

/// Memory of a document, taken 4 KiB at a time, which is enough for nearly every message. With the
/// library's own 64 KiB some C libraries request memory from the system for every message.
class allocator : public rapidjson::MemoryPoolAllocator<system_memory> {
public:
    allocator()
        : MemoryPoolAllocator(4096) {}
};

using document = rapidjson::GenericDocument<rapidjson::UTF8<>, allocator, system_memory>;
using value = document::ValueType;
static_assert(RAPIDJSON_ALIGN(1) % alignof(value) == 0);

/// What a thread works on: while one lives, an assertion that fails on its thread describes it
/// first. The innermost one counts.
class assertion_context {
public:
    assertion_context();
    virtual ~assertion_context();
    assertion_context(const assertion_context&) = delete;
    assertion_context& operator=(const assertion_context&) = delete;

    /// One line, without its end.
    [[nodiscard]] virtual std::string describe() const = 0;

private:
    const assertion_context* const outer_;
};

/// Objects and arrays nested deeper than this are refused: the writer and the passes over a
/// document recurse once per level, and no peer's text may exhaust the stack.
constexpr int max_depth = 1000;

/// Parses one JSON text. The document is null when the text is not JSON or is nested too deeply.
/// The document copies all strings; `text` need not outlive the call.
[[nodiscard]] document parse(std::string_view text);

/// The compact text of a value: no blanks, no line ends.
[[nodiscard]] std::string write(const value& from);

/// The member `name` of `object`, or nullptr. `object` must be an object.
[[nodiscard]] const value* find(const value& object, std::string_view name);
[[nodiscard]] value* find(value& object, std::string_view name);

/// The text of the member `name` if it is a string; it lives as long as the member.
[[nodiscard]] std::optional<std::string_view> find_string(const value& object,
                                                          std::string_view name);

/// The text of a string value, which must be one; it lives as long as the value.
[[nodiscard]] std::string_view text_of(const value& string);

/// The member `name` if it is an integer that fits 32 bits with sign.
[[nodiscard]] std::optional<std::int32_t> find_int(const value& object, std::string_view name);

/// A string value with a copy of the text in the allocator's memory.
[[nodiscard]] value make_string(std::string_view text, allocator& memory);

/// Adds a member at the end, or replaces the value in its place if `object` has one of that name.
/// Name and text are copied; a moved value must come from the same allocator.
void set(value& object, std::string_view name, value&& member, allocator& memory);
void set(value& object, std::string_view name, std::string_view text, allocator& memory);

} // namespace json
