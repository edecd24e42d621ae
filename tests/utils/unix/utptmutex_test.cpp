#include "utils/unix/utptmutex.h"

#include <barrier>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

namespace {

void expect_pool(std::size_t in_use, std::size_t free) {
    const a_ut_mutex_pool_state state = ut_safe_pthread_mutex_state();
    EXPECT_EQ(in_use, state.num_in_use);
    EXPECT_EQ(free, state.num_free);
    EXPECT_EQ(50U, state.num_to_grab);
}

}  // namespace

TEST(MutexPool, grows_by_fifty_and_is_freed_with_the_last_handle) {
    a_critical_sect handles[51];
    for (std::size_t i = 0; i < 51; ++i) {
        ut_safe_pthread_mutex_init(&handles[i], nullptr);
        expect_pool(i + 1, (99 - i) % 50);
    }
    for (std::size_t i = 0; i < 50; ++i) ut_safe_pthread_mutex_destroy(&handles[i]);
    expect_pool(1, 99);
    ut_safe_pthread_mutex_destroy(&handles[50]);
    expect_pool(0, 0);
}

TEST(MutexPool, serves_sixteen_threads_that_take_use_and_return_handles) {
    // Nothing is taken before the threads start, so that they also race for the first batch, for
    // the last handle and for the pool's own guard.
    ut_safe_pthread_mutex_crit_fini();
    std::barrier start(16);
    const auto work = [&] {
        start.arrive_and_wait();
        for (int round = 0; round < 200; ++round) {
            const UTCriticalSection own[3];
            const UTLock mine(own[round % 3].mutex());
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) threads.emplace_back(work);
    for (std::thread& thread : threads) thread.join();
    expect_pool(0, 0);
}
