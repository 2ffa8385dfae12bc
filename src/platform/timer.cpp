#include "platform/timer.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include <pthread.h>

namespace threading {
namespace {

constexpr long milliseconds_per_second = 1000;
constexpr long microseconds_per_second = 1000000;

timespec from_milliseconds(int milliseconds) {
    timespec time{};
    time.tv_sec = milliseconds / milliseconds_per_second;
    time.tv_nsec = milliseconds % milliseconds_per_second * 1000000;
    return time;
}

timespec from_microseconds(int microseconds) {
    timespec time{};
    time.tv_sec = microseconds / microseconds_per_second;
    time.tv_nsec = microseconds % microseconds_per_second * 1000;
    return time;
}

timer_t create_system_timer(sigevent* notification) {
    timer_t id{};
    if (timer_create(CLOCK_REALTIME, notification, &id) != 0) {
        throw std::runtime_error(std::strerror(errno));
    }
    return id;
}

/// Attributes of the callback's threads; needed for a real-time priority only.
class thread_attributes {
public:
    explicit thread_attributes(int priority) {
        sched_param parameters{};
        parameters.sched_priority = priority;
        pthread_attr_init(&attributes_);
        pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
        pthread_attr_setinheritsched(&attributes_, PTHREAD_EXPLICIT_SCHED);
        pthread_attr_setschedpolicy(&attributes_, SCHED_FIFO);
        pthread_attr_setschedparam(&attributes_, &parameters);
    }
    ~thread_attributes() { pthread_attr_destroy(&attributes_); }
    thread_attributes(const thread_attributes&) = delete;
    thread_attributes& operator=(const thread_attributes&) = delete;

    pthread_attr_t* get() { return &attributes_; }

private:
    pthread_attr_t attributes_{};
};

/// Some C libraries start a timer's threads with no signal blocked, and these threads must not take
/// the process's signals. The mask is only added to: other libraries run the callback on a thread
/// of their own, where they keep a signal blocked that would end the process.
void block_all_signals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

} // namespace

/// What a run needs. A thread that the system started for an expiry may reach `entry` after the
/// timer is gone: it looks the state up by a token, not by an address, and shares it while it runs.
struct timer::state {
    explicit state(callback called)
        : function(std::move(called)) {}

    int arm(const timespec& first) {
        timing.it_value = first;
        return timer_settime(id, 0, &timing, nullptr);
    }
    int disarm() {
        armed = false;
        return arm({});
    }

    const callback function;
    std::mutex run_mutex;   // held while the callback runs
    std::mutex state_mutex; // guards what follows; never held across a run
    itimerspec timing{};
    timer_t id{};
    bool armed = false;
    bool closed = false;
    unsigned generation = 0; // counts the starts
    int token = 0;
};

namespace {

/// The live timers by token. Never destroyed: a late thread may look here after main has returned.
template<class state>
struct registry {
    std::mutex mutex;
    std::map<int, std::shared_ptr<state>> timers;
    unsigned last_token = 0;

    static registry& instance() {
        static registry& only = *new registry;
        return only;
    }
    int add(const std::shared_ptr<state>& added) {
        const std::lock_guard<std::mutex> lock(mutex);
        const int token = static_cast<int>(++last_token);
        timers[token] = added;
        return token;
    }
    std::shared_ptr<state> find(int token) {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = timers.find(token);
        return found == timers.end() ? nullptr : found->second;
    }
    void remove(int token) {
        const std::lock_guard<std::mutex> lock(mutex);
        timers.erase(token);
    }
};

} // namespace

timer::timer(int period_ms, callback function, int priority)
    : state_(std::make_shared<state>(std::move(function))) {
    state_->timing.it_interval = from_milliseconds(period_ms);
    state_->token = registry<state>::instance().add(state_);
    sigevent notification{};
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_notify_function = &timer::entry;
    notification.sigev_value.sival_int = state_->token;
    thread_attributes attributes(priority);
    notification.sigev_notify_attributes = priority != 0 ? attributes.get() : nullptr;
    try {
        state_->id = create_system_timer(&notification);
    } catch (...) {
        registry<state>::instance().remove(state_->token);
        throw;
    }
}

timer::~timer() {
    {
        const std::lock_guard<std::mutex> lock(state_->state_mutex);
        state_->closed = true;
        timer_delete(state_->id);
    }
    registry<state>::instance().remove(state_->token);
}

int timer::start(int first_delay_us) {
    const std::lock_guard<std::mutex> lock(state_->state_mutex);
    state_->armed = true;
    ++state_->generation;
    return state_->arm(first_delay_us == 0 ? state_->timing.it_interval
                                           : from_microseconds(first_delay_us));
}

int timer::stop() {
    const std::lock_guard<std::mutex> lock(state_->state_mutex);
    return state_->disarm();
}

void timer::finish() {
    {
        const std::lock_guard<std::mutex> lock(state_->state_mutex);
        state_->closed = true;
        state_->disarm();
    }
    const std::lock_guard<std::mutex> until_run_ended(state_->run_mutex);
}

void timer::entry(sigval token) {
    block_all_signals();
    const std::shared_ptr<state> self = registry<state>::instance().find(token.sival_int);
    if (!self) {
        return;
    }
    unsigned generation = 0;
    {
        const std::lock_guard<std::mutex> lock(self->state_mutex);
        if (self->closed || !self->armed || !self->run_mutex.try_lock()) {
            return;
        }
        generation = self->generation;
    }
    const std::lock_guard<std::mutex> run(self->run_mutex, std::adopt_lock);
    if (self->function && !self->function()) {
        const std::lock_guard<std::mutex> lock(self->state_mutex);
        // A start that came during the run stands: false ends only what was started before.
        if (!self->closed && self->generation == generation) {
            self->disarm();
        }
    }
}

interval_timer::interval_timer(int interval_us) {
    timing_.it_interval = from_microseconds(interval_us);
    timing_.it_value = timing_.it_interval;
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    id_ = create_system_timer(nullptr);
    timer_settime(id_, 0, &timing_, nullptr);
}

interval_timer::~interval_timer() {
    timing_ = {};
    timer_settime(id_, 0, &timing_, nullptr);
    timer_delete(id_);
}

bool interval_timer::wait() {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    int taken = 0;
    return sigwait(&alarm, &taken) == 0 && taken == SIGALRM;
}

} // namespace threading
