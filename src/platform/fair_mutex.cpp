#include "platform/fair_mutex.h"

namespace threading {

void fair_mutex::lock() {
    std::unique_lock<std::mutex> guard(mutex_);
    const unsigned ticket = next_ticket_++;
    served_.wait(guard, [&] { return ticket == serving_; });
}

void fair_mutex::unlock() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++serving_;
    }
    served_.notify_all();
}

} // namespace threading
