/// What the doctor found, and how it is printed.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace csi_doctor {

enum class level { ok, warn, fail };

struct finding {
    level severity;
    std::string where;  // a line, a key or a peer
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

    void ok(std::string where, std::string what);
    void warn(std::string where, std::string what, std::string remedy);
    void fail(std::string where, std::string what, std::string remedy);
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

/// An array of objects {"level","where","what","do"}.
[[nodiscard]] std::string to_json(const std::vector<finding>& findings);

} // namespace csi_doctor
