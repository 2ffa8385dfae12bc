/// What the page and the charts say of a message besides the message itself.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/judge.h"
#include "lab/recording.h"
#include "platform/json.h"

namespace csi_lab {

struct annotation {
    std::string label; // "start 101 cpd"
    std::string kind;  // "command/start"; empty if the contract has none
    std::string title; // of the kind's schema
    std::string description;
    std::vector<finding> breaches;
    bool repeated = false; // the daemon has sent this request before, without an answer
};

/// Whether the message says that something failed. The reply to "start" of a Bot has
/// "success":false even if the Bot was started, but no "reason".
[[nodiscard]] bool says_failure(const json::value& message);

/// Takes the entries of a recording in their order. For one thread at a time.
class annotator {
public:
    [[nodiscard]] annotation next(const entry& what);

private:
    [[nodiscard]] bool is_repeated(const entry& what);

    judge judge_;
    std::map<std::string, entry> unanswered_; // the latest request, by peer
};

/// The line of a recording with its annotation, as one JSON object.
[[nodiscard]] std::string format_annotated(const entry& what, const annotation& with);

/// The same for a whole recording, as a JSON array.
[[nodiscard]] std::string format_annotated(const std::vector<entry>& recording);

} // namespace csi_lab
