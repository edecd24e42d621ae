#include "utils/unix/utptmutex.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

constexpr std::size_t batch_size = 50;

// The guard needs no allocation, so that first use cannot fail and unloading the library leaves
// nothing behind. critical_mutex_p is null until the guard exists.
a_ut_pthread_mutex guard_storage;
std::atomic<a_ut_pthread_mutex*> critical_mutex_p = nullptr;
pthread_once_t guard_once = PTHREAD_ONCE_INIT;

// Guarded by *critical_mutex_p.
a_ut_pthread_mutex* next_free_utpt_mutex = nullptr;
std::size_t num_in_use = 0;
std::size_t num_to_grab = batch_size;

void create_guard() {
    pthread_mutex_init(&guard_storage.mutex, nullptr);
    critical_mutex_p.store(&guard_storage, std::memory_order_release);
}

UTLock<a_ut_pthread_mutex> lock_pool() {
    ut_safe_pthread_mutex_crit_init();
    return UTLock(critical_mutex_p.load(std::memory_order_acquire));
}

// Caller holds the guard, as for every helper below.
void push_free(a_ut_pthread_mutex* record) {
    record->next_free = next_free_utpt_mutex;
    next_free_utpt_mutex = record;
}

a_ut_pthread_mutex* pop_free() {
    a_ut_pthread_mutex* const record = next_free_utpt_mutex;
    if (record != nullptr) next_free_utpt_mutex = record->next_free;
    return record;
}

bool add_fresh_record() {
    // Not from the allocation layer: its out-of-memory hook may itself want a critical section.
    auto* const record = static_cast<a_ut_pthread_mutex*>(calloc(1, sizeof(a_ut_pthread_mutex)));
    if (record == nullptr) return false;
    pthread_mutex_init(&record->mutex, nullptr);
    push_free(record);
    return true;
}

int add_batch(std::size_t count) {
    num_to_grab = batch_size;
    while (count > 0 && add_fresh_record()) --count;
    return count == 0 ? 0 : ENOMEM;
}

// To whoever gets it next it is another mutex; a checker of lock orders would otherwise hold the
// order of this life against that one.
void take_back(a_ut_pthread_mutex* record) {
    pthread_mutex_destroy(&record->mutex);
    pthread_mutex_init(&record->mutex, nullptr);
    push_free(record);
}

void free_all_records() {
    while (a_ut_pthread_mutex* const record = pop_free()) {
        pthread_mutex_destroy(&record->mutex);
        free(record);
    }
}

}  // namespace

int ut_safe_pthread_mutex_init(a_critical_sect* cs, const pthread_mutexattr_t*) {
    const auto guard = lock_pool();
    // A batch for which memory runs out has given some all the same.
    if (next_free_utpt_mutex == nullptr) add_batch(num_to_grab);
    cs->p_mutex = pop_free();
    if (cs->p_mutex == nullptr) return ENOMEM;
    ++num_in_use;
    return 0;
}

int ut_safe_pthread_mutex_destroy(a_critical_sect* cs) {
    if (cs->p_mutex == nullptr) return 0;
    {
        const auto guard = lock_pool();
        take_back(cs->p_mutex);
        // Nobody says when the library is done with the pool; without users it holds nothing.
        if (--num_in_use == 0) free_all_records();
    }
    cs->p_mutex = nullptr;
    return 0;
}

int ut_safe_pthread_mutex_alloc(std::size_t count) {
    const auto guard = lock_pool();
    return add_batch(count);
}

void ut_safe_pthread_mutex_clean() {
    const auto guard = lock_pool();
    free_all_records();
}

void ut_safe_pthread_mutex_crit_init() {
    pthread_once(&guard_once, create_guard);
}

void ut_safe_pthread_mutex_crit_fini() {
    a_ut_pthread_mutex* const guard = critical_mutex_p.exchange(nullptr);
    if (guard == nullptr) return;
    pthread_mutex_destroy(&guard->mutex);
    guard_once = PTHREAD_ONCE_INIT;  // the next use makes a guard again
}

a_ut_mutex_pool_state ut_safe_pthread_mutex_state() {
    const auto guard = lock_pool();
    std::size_t free_records = 0;
    for (const auto* record = next_free_utpt_mutex; record != nullptr; record = record->next_free) {
        ++free_records;
    }
    return {num_in_use, free_records, num_to_grab};
}
