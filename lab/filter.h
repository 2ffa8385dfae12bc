/// Decides which messages are shown.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "peers/journal.h"

namespace csi_lab {

/// A message has several words: its peer ("core", "core:127.0.0.1"), its label ("status"), its
/// command ("active_bots"), its engine type ("cpd"). A peer's reply has the words of the request,
/// too. For one thread at a time.
class filter {
public:
    /// Shows messages with one of the words `only`, or all if there are none, but none of those
    /// with one of the words `without`.
    filter(const std::vector<std::string>& only, const std::vector<std::string>& without);

    [[nodiscard]] bool shows(const peers::message& what);

private:
    std::set<std::string> words_of(const peers::message& what);

    const std::set<std::string> only_;
    const std::set<std::string> without_;
    std::map<std::string, std::set<std::string>> latest_request_; // its words, by peer
};

} // namespace csi_lab
