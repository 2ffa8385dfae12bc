/// Periodic work: a timer that calls back on threads that the system starts, and one to wait on.
#pragma once

#include <csignal>
#include <ctime>
#include <functional>
#include <memory>

namespace threading {

/// Calls a function object once per period, each time on a thread that the system starts. Runs
/// never overlap: an expiry during a run is dropped. Any thread may call its operations; it must
/// outlive the calls.
class timer {
public:
    /// Returns false to stop the timer until the next start.
    using callback = std::function<bool()>;

    /// Created disarmed. A `priority` above 0 is the real-time priority of the callback's threads.
    /// Throws std::runtime_error with the system's error text when the system refuses the timer.
    timer(int period_ms, callback function, int priority);

    /// No run begins afterwards. Does not wait for a run in progress.
    ~timer();
    timer(const timer&) = delete;
    timer& operator=(const timer&) = delete;

    /// Arms the timer: first expiry after `first_delay_us`, or after one period when that is 0.
    /// Both return the system call's result.
    int start(int first_delay_us);
    int stop();

    /// Stops the timer for good and waits until a run in progress has ended. Not to be called from
    /// the callback.
    void finish();

private:
    struct state;
    static void entry(sigval token);

    std::shared_ptr<state> state_;
};

/// A periodic timer that raises SIGALRM, and the wait for it. Armed by its constructor.
class interval_timer {
public:
    /// Blocks SIGALRM in the calling thread. Throws as timer does.
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
