// Timers, on the real system.
#include <atomic>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "platform/timer.h"
#include "support/fixtures.h"

using namespace std::chrono_literals;

TEST(timer, first_delay_period_and_stop_by_false) {
    std::atomic<int> runs{0};
    threading::timer timer(
        200, [&runs] { return ++runs < 3; }, 0);
    const stopwatch watch;
    timer.start(50000);
    ASSERT_TRUE(wait_until([&runs] { return runs == 1; }));
    EXPECT_GE(watch.elapsed(), 50ms);
    EXPECT_LT(watch.elapsed(), 180ms);
    ASSERT_TRUE(wait_until([&runs] { return runs == 3; }));
    EXPECT_GE(watch.elapsed(), 450ms);
    EXPECT_FALSE(wait_until([&runs] { return runs > 3; }, 500ms)) << "false did not stop it";

    const stopwatch again;
    timer.start(0); // the first expiry is one period away
    ASSERT_TRUE(wait_until([&runs] { return runs == 4; }));
    EXPECT_GE(again.elapsed(), 200ms);
    timer.start(100000);
    EXPECT_EQ(timer.stop(), 0);
    EXPECT_FALSE(wait_until([&runs] { return runs > 4; }, 300ms)) << "stop did not stop it";
}

TEST(timer, runs_never_overlap_and_finish_waits_for_the_last) {
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> runs{0};
    std::atomic<bool> release{false};
    threading::timer timer(
        10,
        [&] {
            most = std::max<int>(most, ++inside);
            wait_until([&release] { return release.load(); });
            --inside;
            ++runs;
            return true;
        },
        0);
    timer.start(1);
    ASSERT_TRUE(wait_until([&inside] { return inside == 1; }));
    EXPECT_FALSE(wait_until([&most] { return most > 1; }, 100ms));
    std::thread releaser([&release] {
        std::this_thread::sleep_for(50ms);
        release = true;
    });
    timer.finish();
    EXPECT_EQ(inside, 0);
    const int ended = runs;
    EXPECT_FALSE(wait_until([&] { return runs > ended; }, 100ms)) << "a run after finish";
    releaser.join();
}

TEST(timer, a_start_during_a_run_outlives_the_false_of_that_run) {
    std::atomic<int> runs{0};
    threading::timer* self = nullptr;
    threading::timer timer(
        50,
        [&] {
            if (++runs == 1) {
                self->start(0);
                return false;
            }
            return true;
        },
        0);
    self = &timer;
    timer.start(1);
    EXPECT_TRUE(wait_until([&runs] { return runs >= 3; }));
}

TEST(timer, destroying_it_at_any_moment_is_safe) {
    for (int round = 0; round < 200; ++round) {
        auto runs = std::make_shared<std::atomic<int>>(0);
        threading::timer timer(
            1, [runs] { return ++*runs > 0; }, 0);
        timer.start(1 + round * 10);
        wait_until([&runs] { return *runs > 0; }, std::chrono::milliseconds(round % 4));
    }
}

TEST(timer, refused_by_the_system_throws_its_text) {
    rlimit old{};
    getrlimit(RLIMIT_SIGPENDING, &old);
    const rlimit none{0, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    EXPECT_THROW(threading::interval_timer(1000), std::runtime_error);
    setrlimit(RLIMIT_SIGPENDING, &old);
}

TEST(timer, interval_timer_is_waited_on) {
    const stopwatch watch;
    threading::interval_timer timer(20000);
    for (int turn = 0; turn < 3; ++turn) {
        EXPECT_TRUE(timer.wait());
    }
    EXPECT_GE(watch.elapsed(), 55ms);
}
