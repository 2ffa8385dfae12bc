/// Periodic work: a timer that calls back on threads of the system's, and one to wait on.
#pragma once

#include <csignal>
#include <ctime>
#include <functional>
#include <memory>

namespace threading {

/// Calls a function object once a period, each time on a thread that the system starts for it. Runs
/// never overlap: an expiry that comes while a run lasts is dropped. Any thread may call its
/// operations, but the one that destroys it.
class timer {
public:
    /// True goes on, false stops the timer until it is started anew.
    using callback = std::function<bool()>;

    /// Created disarmed. `priority` above 0 asks for that real-time priority for the callback's
    /// threads. Throws std::runtime_error with the system's text when it refuses the timer.
    timer(int period_ms, callback function, int priority);

    /// No run begins afterwards; one that is going is not waited for.
    ~timer();
    timer(const timer&) = delete;
    timer& operator=(const timer&) = delete;

    /// Arms the timer: first expiry after `first_delay_us`, or after one period when that is 0.
    /// Both return the system call's result.
    int start(int first_delay_us);
    int stop();

    /// Lets no further run begin, for good, and waits until the run in flight has ended. Not to be
    /// called from the callback.
    void finish();

private:
    struct state;
    static void entry(sigval token);

    std::shared_ptr<state> state_;
};

/// A periodic timer that raises SIGALRM, and the wait for it. Armed from construction on.
class interval_timer {
public:
    /// Blocks SIGALRM in the calling thread. Throws std::runtime_error like timer.
    explicit interval_timer(int interval_us);
    virtual ~interval_timer();
    interval_timer(const interval_timer&) = delete;
    interval_timer& operator=(const interval_timer&) = delete;

    /// Waits for the next expiry; true when the signal was taken.
    bool wait();

private:
    itimerspec timing_{};
    timer_t id_{};
};

} // namespace threading
