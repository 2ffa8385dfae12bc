// When a poll and the tick are due, and how long the loop waits, at given times.
#include <climits>

#include <gtest/gtest.h>

#include "client/pacing.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

TEST(pacing, a_poll_is_due_when_more_than_the_interval_has_passed) {
    const struct {
        std::int32_t interval_ms; // 0: as constructed
        pacing::time now;
        bool is_due;
    } rows[] = {
        {0, 100ms, false},
        {0, 100ms + 1ns, true},
        {0, 200ms + 1ns, false},
        {0, 200ms + 2ns, true}, // counted from the poll, not from when it was due
        {500, 700ms, false},
        {500, 701ms, true},
        {INT_MAX, 701ms + 2147483647ms, false},
        {INT_MAX, 701ms + 2147483648ms, true},
    };
    pacing pace;
    for (const auto& row : rows) {
        if (row.interval_ms != 0) {
            pace.set_poll_interval(row.interval_ms);
        }
        EXPECT_EQ(pace.poll_due(row.now), row.is_due) << row.now.count();
    }
}

TEST(pacing, the_tick_is_due_every_thirty_seconds) {
    pacing pace;
    EXPECT_FALSE(pace.tick_due(30s)) << "of a system that has just started";
    EXPECT_TRUE(pace.tick_due(30s + 1ns));
    EXPECT_FALSE(pace.tick_due(60s + 1ns));
    EXPECT_TRUE(pace.tick_due(60s + 2ns));
    EXPECT_TRUE(pace.poll_due(60s)) << "polls and ticks are counted apart";
}

TEST(pacing, waits_a_fifth_of_the_interval_or_twenty) {
    const struct {
        std::int32_t interval_ms;
        int attached_ms;
        int away_ms;
    } rows[] = {{100, 20, 2000},
                {4, 0, 80},
                {9, 1, 180},
                {107374182, 21474836, INT_MAX - 7},
                {107374183, 21474836, INT_MAX}};
    pacing pace;
    EXPECT_EQ(pace.wait_ms(true), 20);
    EXPECT_EQ(pace.wait_ms(false), 2000);
    for (const auto& row : rows) {
        pace.set_poll_interval(row.interval_ms);
        EXPECT_EQ(pace.wait_ms(true), row.attached_ms) << row.interval_ms;
        EXPECT_EQ(pace.wait_ms(false), row.away_ms) << row.interval_ms;
    }
}
