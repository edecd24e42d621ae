#include "providers/openssl/emptyreads.h"

#include "providers/openssl/clock.h"
#include "testprovider.h"

int64_t monotonic_us() {
    return fake_clock.now_us;
}

int64_t calendar_s() {
    return time(nullptr) + 86400 * fake_clock.days_ahead;
}

void sleep_us(int64_t span) {
    fake_clock.now_us += span + fake_clock.oversleep_us;
}

namespace {

/// How many empty reads it takes, and for how long they wait.
std::pair<int, int64_t> patience(EmptyReads& reads) {
    const int64_t start = fake_clock.now_us;
    int count = 0;
    for (; !reads.gave_up() && count < 1000; ++count) reads.wait();
    return {count, fake_clock.now_us - start};
}

TEST(EmptyReads, give_up_when_a_last_look_finds_nothing) {
    EmptyReads reads;
    const std::pair<int, int64_t> whole = {6 + 37 + 1,
                                           1900000};  // 63 ms in growing sleeps, then 50 each
    EXPECT_EQ(whole, patience(reads));
    EXPECT_EQ(std::pair(0, int64_t{0}), patience(reads));  // it stays so

    reads.reset();  // as when something arrives
    EXPECT_EQ(whole, patience(reads));
    reads.reset();
    for (int i = 1; i < whole.first; ++i) reads.wait();
    EXPECT_FALSE(reads.gave_up());  // before that last look

    reads.reset();
    fake_clock.oversleep_us = 5000000;
    EXPECT_EQ(20, patience(reads).first) << "not for a few sleeps that took too long";
    fake_clock.oversleep_us = 0;
}

}  // namespace
