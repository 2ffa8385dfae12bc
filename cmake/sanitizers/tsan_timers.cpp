// Timers with threads that the thread sanitizer can see, only for its preset.
//
// The C library creates the threads of SIGEV_THREAD timers internally, where the sanitizer does not
// see them and crashes. These functions replace the system's and keep the properties that matter:
// each expiry runs on a new, detached thread, which has the wanted real-time priority and starts
// with no signal blocked; and a process that may not have pending signals gets no timer.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <mutex>
#include <thread>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using steady = std::chrono::steady_clock;

struct thread_timer {
    sigevent notification;
    sched_param schedule{}; // a priority of 0 is not a real-time one
    std::mutex mutex;
    std::condition_variable changed;
    bool armed = false;
    bool deleted = false;
    steady::time_point next;
    steady::duration interval{};
    bool is_signal_timer = false;
    int kernel_id = 0;
};

steady::duration to_duration(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void notify(const sigevent& notification, const sched_param& schedule) {
    if (schedule.sched_priority > 0) {
        pthread_setschedparam(pthread_self(), SCHED_FIFO, &schedule);
    }
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    notification.sigev_notify_function(notification.sigev_value);
}

void serve(thread_timer* timer) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    std::unique_lock<std::mutex> lock(timer->mutex);
    while (!timer->deleted) {
        if (!timer->armed) {
            timer->changed.wait(lock);
        } else if (steady::now() < timer->next) {
            timer->changed.wait_until(lock, timer->next);
        } else {
            timer->next =
                std::max(timer->next + timer->interval, steady::now()); // overruns count once
            lock.unlock();
            std::thread(notify, timer->notification, timer->schedule).detach();
            lock.lock();
        }
    }
    lock.unlock();
    delete timer;
}

} // namespace

// Memory is refused as the system refuses it: the code must handle that.
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

extern "C" {

int timer_create(clockid_t clock, sigevent* notification, timer_t* id) noexcept {
    rlimit pending{};
    getrlimit(RLIMIT_SIGPENDING, &pending);
    if (pending.rlim_cur == 0) {
        errno = EAGAIN;
        return -1;
    }
    auto* const timer = new thread_timer;
    *id = timer;
    if (notification != nullptr && notification->sigev_notify == SIGEV_THREAD) {
        timer->notification = *notification;
        if (notification->sigev_notify_attributes != nullptr) {
            pthread_attr_getschedparam(notification->sigev_notify_attributes, &timer->schedule);
        }
        std::thread(serve, timer).detach();
        return 0;
    }
    timer->is_signal_timer = true;
    return static_cast<int>(syscall(SYS_timer_create, clock, notification, &timer->kernel_id));
}

int timer_settime(timer_t id, int flags, const itimerspec* timing, itimerspec* old) noexcept {
    auto* const timer = static_cast<thread_timer*>(id);
    if (timer->is_signal_timer) {
        return static_cast<int>(syscall(SYS_timer_settime, timer->kernel_id, flags, timing, old));
    }
    const std::lock_guard<std::mutex> lock(timer->mutex);
    const steady::duration first = to_duration(timing->it_value);
    timer->armed = first != steady::duration::zero();
    timer->next = steady::now() + first;
    timer->interval = to_duration(timing->it_interval);
    timer->changed.notify_one();
    return 0;
}

int timer_delete(timer_t id) noexcept {
    auto* const timer = static_cast<thread_timer*>(id);
    if (timer->is_signal_timer) {
        const long result = syscall(SYS_timer_delete, timer->kernel_id);
        delete timer;
        return static_cast<int>(result);
    }
    const std::lock_guard<std::mutex> lock(timer->mutex);
    timer->deleted = true;
    timer->changed.notify_one();
    return 0;
}

} // extern "C"
