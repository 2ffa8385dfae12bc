/// Judges recorded traffic by the protocol's schemas and the rules that no schema can express.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "lab/pairing.h"
#include "lab/recording.h"

namespace csi_lab {

/// One breach, in a message.
struct finding {
    std::size_t line;    // of the recording; 0: none
    std::string message; // "core 127.0.0.1 -> daemon  core_reply/info"
    std::string member;  // as a JSON pointer; empty: the whole message
    std::string wanted;  // what belongs there
    bool fatal;          // ends the daemon
    std::string text;    // of the message
};

/// As two lines of text.
[[nodiscard]] std::vector<std::string> describe(const finding& what);

/// Takes the entries of a recording in their order. For one thread at a time.
class judge {
public:
    [[nodiscard]] std::vector<finding> next(const entry& what);

    /// The kind of the latest message: "command/start"; empty if there was nothing to judge.
    [[nodiscard]] const std::string& latest_kind() const { return latest_kind_; }
    /// What the latest message answers, if anything.
    [[nodiscard]] const std::optional<entry>& latest_request() const { return latest_request_; }

    [[nodiscard]] std::size_t messages() const { return messages_; }
    [[nodiscard]] std::size_t breaches() const { return breaches_; }
    /// "no breach in 12 messages".
    [[nodiscard]] std::string summary() const;

private:
    pairing pairing_;
    std::string latest_kind_;
    std::optional<entry> latest_request_;
    bool server_spoke_ = false; // a recording may begin with a reply
    std::string latest_reply_;  // it comes twice if the connection breaks
    std::size_t messages_ = 0;
    std::size_t breaches_ = 0;
    std::size_t fatal_ = 0;
};

/// Executes "csi_lab judge": prints each breach of the recording and returns the exit status.
/// Throws input_error.
[[nodiscard]] int judge_recording(const std::string& path);

} // namespace csi_lab
