/// What the doctor found, and how it is shown.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace csi_doctor {

enum class level { ok, warn, fail };

struct finding {
    level severity;
    std::string where;  // a line, a key or a peer
    std::string what;   // in plain words, with what the daemon makes of it
    std::string remedy; // empty when nothing is to be done
};

/// The findings in the order in which they were made.
class report {
public:
    using listener = std::function<void(const finding&)>;

    /// The listener is told each finding at once: those about the network take their time.
    explicit report(listener on_finding = {})
        : on_finding_(std::move(on_finding)) {}

    void ok(std::string where, std::string what);
    void warn(std::string where, std::string what, std::string remedy);
    void fail(std::string where, std::string what, std::string remedy);

    [[nodiscard]] const std::vector<finding>& all() const { return all_; }

    /// 0, with warnings 1, with failures 2.
    [[nodiscard]] int exit_status() const;

private:
    void add(finding&& found);

    std::vector<finding> all_;
    listener on_finding_;
};

/// The text with all bytes but printable ASCII as "\x1b": they would harm a terminal, and a blank
/// that is none is to be seen.
[[nodiscard]] std::string printable(std::string_view text);

/// The same in quotes.
[[nodiscard]] std::string quoted(std::string_view text);

/// One line without a line end.
[[nodiscard]] std::string to_line(const finding& from, bool color);

/// "2 failures, 1 warning", or "all is well".
[[nodiscard]] std::string to_summary(const std::vector<finding>& from);

/// An array of objects {"level","where","what","do"}.
[[nodiscard]] std::string to_json(const std::vector<finding>& from);

} // namespace csi_doctor
