// Timers, on the real system.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "daemon/process.h"
#include "platform/timer.h"
#include "support/fixtures.h"

using namespace std::chrono_literals;

namespace {

/// A timer that counts its runs. The function gets the number of the run.
struct counting_timer {
    explicit counting_timer(
        int period_ms, std::function<bool(int)> run = [](int) { return true; })
        : timer(
              period_ms,
              [this, run = std::move(run)] {
                  const bool goes_on = run(runs + 1);
                  ++runs;
                  return goes_on;
              },
              0) {}
    ~counting_timer() { timer.finish(); } // a run would still count
    [[nodiscard]] bool reaches(int count, std::chrono::milliseconds bound = 10s) const {
        return wait_until([this, count] { return runs >= count; }, bound);
    }
    std::atomic<int> runs{0};
    threading::timer timer;
};

std::string refusal_of(const std::function<void()>& create) {
    try {
        create();
        return "granted";
    } catch (const std::runtime_error& refusal) {
        return refusal.what();
    }
}

} // namespace

TEST(timer, first_delay_period_and_stop_by_false) {
    counting_timer counted(100, [](int run) { return run != 3; });
    EXPECT_FALSE(counted.reaches(1, 150ms)) << "created armed";
    stopwatch watch;
    EXPECT_EQ(counted.timer.start(50000), 0);
    ASSERT_TRUE(counted.reaches(1));
    EXPECT_GE(watch.elapsed(), 50ms);
    ASSERT_TRUE(counted.reaches(3));
    EXPECT_GE(watch.elapsed(), 250ms);
    EXPECT_FALSE(counted.reaches(4, 250ms)) << "false did not stop it";

    watch = {};
    counted.timer.start(0); // the first expiry is one period away
    ASSERT_TRUE(counted.reaches(4));
    EXPECT_GE(watch.elapsed(), 100ms);
    counted.timer.start(50000);
    EXPECT_EQ(counted.timer.stop(), 0);
    EXPECT_FALSE(counted.reaches(5, 200ms)) << "stop did not stop it";
}

TEST(timer, times_have_seconds_and_fractions) {
    counting_timer long_period(1010);
    counting_timer long_delay(10);
    counting_timer short_delay(60000);
    threading::timer without_callback(1, {}, 0);
    without_callback.start(1);
    long_period.timer.start(0);
    long_delay.timer.start(1010000);
    short_delay.timer.start(10000);
    EXPECT_TRUE(short_delay.reaches(1));
    EXPECT_FALSE(long_period.reaches(1, 200ms) || long_delay.reaches(1, 0ms));
}

TEST(timer, runs_block_all_signals_and_have_the_priority) {
    for (const int priority : {0, 5}) {
        std::atomic<bool> right{false};
        const auto check = [&] {
            sigset_t mask;
            pthread_sigmask(SIG_BLOCK, nullptr, &mask);
            right = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGALRM) == 1 &&
                    csi_receiver::get_priority(pthread_self()) == priority;
            return false;
        };
        threading::timer timer(1000, check, priority);
        std::thread([&] { // without the system's consent no run begins
            if (csi_receiver::set_realtime_priority(pthread_self(), 5) == 0 || priority == 0) {
                timer.start(1);
                EXPECT_TRUE(wait_until([&right] { return right.load(); })) << priority;
            }
        })
            .join();
    }
}

TEST(timer, runs_never_overlap_and_finish_waits_for_the_last) {
    std::atomic<int> inside{0};
    std::atomic<bool> overlap{false};
    std::atomic<bool> release{false};
    counting_timer counted(10, [&](int) {
        overlap = ++inside > 1 || overlap;
        wait_until([&release] { return release.load(); });
        --inside;
        return false;
    });
    counted.timer.start(1);
    ASSERT_TRUE(wait_until([&inside] { return inside == 1; }));
    EXPECT_FALSE(wait_until([&overlap] { return overlap.load(); }, 100ms));
    release = true;
    EXPECT_FALSE(counted.reaches(2, 100ms)) << "an expiry was not dropped";

    release = false;
    counted.timer.start(1);
    ASSERT_TRUE(wait_until([&inside] { return inside == 1; }));
    std::thread releaser([&release] {
        std::this_thread::sleep_for(50ms);
        release = true;
    });
    counted.timer.finish();
    EXPECT_EQ(counted.runs, 2);
    counted.timer.start(1);
    EXPECT_FALSE(counted.reaches(3, 100ms)) << "a run after finish";
    releaser.join();
}

TEST(timer, a_start_during_a_run_outlives_the_false_of_that_run) {
    threading::timer* self = nullptr;
    counting_timer counted(50, [&self](int run) { return run > 1 || self->start(0) != 0; });
    self = &counted.timer;
    counted.timer.start(1);
    EXPECT_TRUE(counted.reaches(3));
}

TEST(timer, destroying_it_at_any_moment_is_safe_and_does_not_wait) {
    for (int round = 0; round < 200; ++round) {
        const stopwatch watch;
        auto runs = std::make_shared<std::atomic<int>>(0);
        auto release = std::make_shared<std::atomic<bool>>(false);
        {
            const auto run = [runs, release] {
                ++*runs;
                return wait_until([&release] { return release->load(); });
            };
            threading::timer timer(1, run, 0);
            const threading::interval_timer unused(1000000);
            timer.start(1 + round * 10);
            wait_until([&runs] { return *runs > 0; }, std::chrono::milliseconds(round % 4));
        }
        ASSERT_LT(watch.elapsed(), 8s);
        *release = true;
    }
    // In some C libraries the threads of the timers delete them.
    EXPECT_TRUE(wait_until([] { return std::ifstream("/proc/self/timers").peek() == EOF; }))
        << "timers are left";
}

TEST(timer, refused_by_the_system_throws_its_text) {
    rlimit old{};
    getrlimit(RLIMIT_SIGPENDING, &old);
    const rlimit none{0, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    const std::string again = std::strerror(EAGAIN);
    EXPECT_EQ(refusal_of([] { const threading::interval_timer timer(1000); }), again);
    EXPECT_EQ(refusal_of([] { const threading::timer timer(1000, {}, 0); }), again);
    setrlimit(RLIMIT_SIGPENDING, &old);
}

TEST(timer, interval_timer_is_waited_on_and_ends) {
    const stopwatch watch;
    {
        threading::interval_timer timer(20000);
        for (int turn = 0; turn < 3; ++turn) {
            EXPECT_TRUE(timer.wait());
        }
        EXPECT_GE(watch.elapsed(), 55ms);
    }
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    const timespec time{0, 60000000};
    sigtimedwait(&alarm, nullptr, &time); // one may have come before the end
    EXPECT_EQ(sigtimedwait(&alarm, nullptr, &time), -1);
}
