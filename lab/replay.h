/// Plays the peers of a recording: the same answers to the same requests.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/recording.h"

namespace csi_lab {

/// A request of the daemon, with what the peer answered.
struct recorded_exchange {
    entry request;
    std::vector<entry> answers; // several when they came twice; none when the recording ends
    std::string key;            // the same for requests that are the same
    bool timed;                 // whether it depends on time how often it is made
    bool used = false;
};

/// What to answer to a request, and how the request differs from the recorded ones.
struct replayed_answer {
    std::vector<entry> answers; // none: stay silent
    std::string difference;     // empty: none
};

/// The recorded requests of the daemon with their answers. A request gets the answer to the first
/// recorded request that is the same and has not been made yet. Polls, pings and requests for
/// active Bots depend on time: how many there are makes no difference. For one thread at a time.
class replay_book {
public:
    explicit replay_book(const std::vector<entry>& recording);

    [[nodiscard]] replayed_answer answer(const entry& request);

    /// The names of the recorded peers: "server", "fusion", "core 127.0.0.1".
    [[nodiscard]] std::vector<std::string> peers() const;
    /// Recorded requests that have not been made, but for those that depend on time.
    [[nodiscard]] std::vector<entry> missing() const;
    /// How many those are.
    [[nodiscard]] std::size_t missing_count() const { return missing_count_; }
    /// The longest time without a message, in seconds.
    [[nodiscard]] double longest_gap() const { return longest_gap_; }

private:
    void use(recorded_exchange& one);
    [[nodiscard]] recorded_exchange* find(const std::string& key, bool used);
    [[nodiscard]] recorded_exchange* find_similar(const entry& request);

    std::vector<recorded_exchange> exchanges_;
    std::size_t missing_count_ = 0;
    double longest_gap_ = 0;
};

} // namespace csi_lab
