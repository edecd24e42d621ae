#include "utils/unix/timelib.h"

#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

long raw_now;
uint64 wall_now;
int wall_reads;

constexpr a_timelib_clock fake_clock = {[] { return raw_now; },
                                        [] { return ++wall_reads, wall_now; }, [] { return 100L; }};

a_timer_tick sample_at(long raw) {
    raw_now = raw;
    a_timer_tick tick;
    tick.sample();
    return tick;
}

void start_at(long raw, uint64 wall) {
    raw_now = raw;
    wall_now = wall;
    EXPECT_EQ(1, timelib_init());
    wall_reads = 0;
}

class Timelib : public testing::Test {
  protected:
    Timelib() {
        timelib_set_clock(&fake_clock);
        start_at(0, 0);
    }
    ~Timelib() override {
        start_at(0, 0);
        timelib_set_clock(nullptr);
    }
};

TEST_F(Timelib, extends_the_raw_counter_over_its_wraps) {
    const std::pair<long, uint64> samples[] = {
        {0x7FFFFFF0, 0x7FFFFFF0},
        {0x00000010, 0x80000010},  // wrapped
        {0x00000005, 0x80000005},  // a little below: read before another thread's, no wrap
        {0x00000000, 0x80000000},  // exactly a quarter of the range below: no wrap either
        {0x40000001, 0xC0000001},
        {0x00000000, 0x100000000},                      // more than a quarter: wrapped
        {static_cast<long>(0xFFFFFFFFu), 0x17FFFFFFF},  // the counter's top bit is not read
    };
    for (const auto& [raw, tick] : samples) EXPECT_EQ(tick, sample_at(raw).ticks());
}

TEST_F(Timelib, refreshes_the_wall_clock_correction_after_more_than_five_seconds) {
    start_at(1000, 7000000);
    wall_now = 12010000 - 300;  // the wall clock loses 300 us against the timer
    sample_at(1500);
    EXPECT_EQ(0, wall_reads);
    const a_timer_tick tick = sample_at(1501);
    EXPECT_EQ(1, wall_reads);
    EXPECT_EQ(wall_now + 2000000, a_tod_tick(tick + a_timer_tick::Seconds(2)).ticks());
}

TEST_F(Timelib, turns_wall_clock_time_into_a_local_timestamp) {
    setenv("TZ", "XXX-5:30", 1);
    tzset();
    a_timestamp stamp = {1, 2, 3};
    wall_now = 1709231399654321;  // 2024-02-29 18:29:59.654321 UTC, 23:59:59 local
    a_tod_tick tick;
    tick.sample();
    tick.to_timestamp(&stamp);
    EXPECT_EQ(2460370, stamp.date);
    EXPECT_EQ(2415080, jdate_day_number(1900, 3, 1)) << "1900 was no leap year";
    EXPECT_TRUE(stamp.seconds == 86399 && stamp.microseconds == 654321);
    unsetenv("TZ");
    tzset();
}

TEST(TimelibSystemClock, samples_from_many_threads_do_not_step_back_within_a_thread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            a_timer_tick last;
            for (int n = 0; n < 2000; ++n) {
                a_timer_tick now;
                now.sample();
                EXPECT_GE(now, last);
                last = now;
            }
        });
    for (auto& thread : threads) thread.join();
}

}  // namespace
