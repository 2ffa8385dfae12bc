/// What the doctor found, and how it is printed.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace csi_doctor {

enum class level { ok, warn, fail };

/// Names a kind of finding to programs. Documented in docs/operations.md, and never changed.
struct finding_code {
    std::string_view name;
};

constexpr finding_code operator""_code(const char* name, std::size_t size) {
    return {{name, size}};
}

/// What a finding is about, as people and as programs read it.
struct place {
    // Most places are only a text, and so both convert.
    // cppcheck-suppress noExplicitConstructor
    place(const char* shown)
        : text(shown) {}
    // cppcheck-suppress noExplicitConstructor
    place(std::string shown, std::size_t line_number = 0, std::string configuration_key = {})
        : text(std::move(shown))
        , line(line_number)
        , key(std::move(configuration_key)) {}

    std::string text;
    std::size_t line = 0; // counted from 1; 0: none
    std::string key;      // empty: none
    std::size_t item = 0; // of the routing, counted from 1; 0: none
};

struct finding {
    level severity;
    finding_code code;
    place where;
    std::string what;   // the fact, and what the daemon does because of it
    std::string remedy; // empty when there is nothing to do
};

/// The findings in the order in which they were made.
class report {
public:
    using listener = std::function<void(const finding&)>;

    /// The listener gets each finding as soon as it is made: network checks may take seconds.
    explicit report(listener on_finding = {})
        : on_finding_(std::move(on_finding)) {}

    void ok(finding_code code, place where, std::string what);
    void warn(finding_code code, place where, std::string what, std::string remedy);
    void fail(finding_code code, place where, std::string what, std::string remedy);
    void add(finding made);

    [[nodiscard]] const std::vector<finding>& all() const { return all_; }

    /// 2 with failures, 1 with warnings only, 0 otherwise.
    [[nodiscard]] int exit_status() const;

private:
    std::vector<finding> all_;
    listener on_finding_;
};

/// One line without a line end.
[[nodiscard]] std::string to_line(const finding& made, bool color);

/// "2 failures, 1 warning", or "all is well".
[[nodiscard]] std::string to_summary(const std::vector<finding>& findings);

/// An array of objects {"level","where","what","do","code","line","key","item"}.
[[nodiscard]] std::string to_json(const std::vector<finding>& findings);

} // namespace csi_doctor
