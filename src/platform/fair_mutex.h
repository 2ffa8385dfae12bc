/// A mutex that serves its threads in the order in which they came.
#pragma once

#include <condition_variable>
#include <mutex>

namespace threading {

/// For std::lock_guard. A plain mutex lets a thread that unlocks and locks again at once overtake
/// those that wait. Not recursive.
class fair_mutex {
public:
    void lock();
    void unlock();

private:
    std::mutex mutex_; // guards what follows, for moments only
    std::condition_variable served_;
    unsigned next_ticket_ = 0;
    unsigned serving_ = 0; // the ticket of the owner, or the next one that will own it
};

} // namespace threading
