/// What the page shows, in the order in which it happened, for any number of open pages.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "lab/annotation.h"
#include "lab/recording.h"

namespace csi_lab {

/// May be called from any thread.
class page_feed {
public:
    /// Keeps the latest items.
    explicit page_feed(std::size_t limit);

    void add(const entry& what);
    /// What is not a message: a line that was "typed" or "said", of the daemon's "log", a "remark".
    void note(const std::string& kind, const std::string& text);

    struct batch {
        std::uint64_t next; // where the next read goes on
        std::string items;  // a JSON array
    };
    /// The items from this number on that are kept, at most 2000. Waits for the first one, until
    /// the time is up or the feed is closed.
    [[nodiscard]] batch read(std::uint64_t from, std::chrono::milliseconds time);

    /// In seconds, as the items' times.
    [[nodiscard]] double now() const;

    /// How many seconds ago the daemon last sent something; nullopt if it has not yet.
    [[nodiscard]] std::optional<double> silent_for();

    /// Ends all reads from now on.
    void close();

    /// Distinguishes this feed from those of other runs of the lab.
    [[nodiscard]] const std::string& run() const { return run_; }

private:
    void push(std::string item);

    const std::size_t limit_;
    const std::chrono::system_clock::time_point start_ = std::chrono::system_clock::now();
    const std::string run_ = std::to_string(start_.time_since_epoch().count());
    std::mutex mutex_; // guards the members below
    std::condition_variable changed_;
    annotator annotator_;
    std::deque<std::string> items_;
    std::uint64_t dropped_ = 0;                                  // before the first that is kept
    std::optional<std::chrono::system_clock::time_point> heard_; // the daemon, latest
    bool closed_ = false;
};

} // namespace csi_lab
