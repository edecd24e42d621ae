#ifndef QUOREL_UTILS_UNIX_UTPTMUTEX_H
#define QUOREL_UTILS_UNIX_UTPTMUTEX_H

/// Critical sections: handles to mutexes that come from a process-wide pool, which is refilled in
/// batches and freed when the last handle has been given back.
///
/// Threads: the pool's functions may be called from any thread. A critical section is not
/// recursive: a thread that enters one twice waits for itself. One handle is initialised and
/// destroyed by one thread, while nobody is inside.

#include <cstddef>

#include <pthread.h>

#include "utils/etc/uttypes.h"
#include "utils/unix/utmutex.h"

/// One pooled mutex, for UTLock. Owned by the pool.
struct a_ut_pthread_mutex {
    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }

    pthread_mutex_t mutex;
    a_ut_pthread_mutex* next_free;  ///< next record of the free list
};

/// A handle: null before initialisation and after destruction. UTLock holds its `p_mutex`.
struct a_ut_safe_pthread_mutex_t {
    a_ut_pthread_mutex* p_mutex = nullptr;
};

using a_critical_sect = a_ut_safe_pthread_mutex_t;

/// Takes a mutex from the pool for *cs. `attributes` is ignored; callers pass null. Returns 0, or
/// ENOMEM with cs->p_mutex null when the pool is empty and cannot grow.
int ut_safe_pthread_mutex_init(a_critical_sect* cs, const pthread_mutexattr_t* attributes);

/// Gives the mutex of *cs back to the pool and sets cs->p_mutex to null; a null handle is ignored.
/// The last one given back frees every pooled record. Returns 0.
int ut_safe_pthread_mutex_destroy(a_critical_sect* cs);

/// Adds `count` fresh mutexes to the pool and sets the size of the next batch to 50. Returns 0, or
/// ENOMEM when fewer could be added.
int ut_safe_pthread_mutex_alloc(std::size_t count);

/// Destroys and frees every mutex that is in the pool; those handed out are not touched.
void ut_safe_pthread_mutex_clean();

/// Creates and destroys the pool's own guard. The pool creates it when it is first used, and the
/// library never destroys it; only a process that is sure that no other thread uses the pool may.
void ut_safe_pthread_mutex_crit_init();
void ut_safe_pthread_mutex_crit_fini();

/// The pool's counters, taken together.
struct a_ut_mutex_pool_state {
    std::size_t num_in_use;   ///< mutexes handed out
    std::size_t num_free;     ///< mutexes waiting in the pool
    std::size_t num_to_grab;  ///< size of the next batch
};
a_ut_mutex_pool_state ut_safe_pthread_mutex_state();

/// A critical section that exists as long as the object. The pool may have none to give: then the
/// object is there, but nobody can enter it.
class UTCriticalSection {
  public:
    UTCriticalSection() { ut_safe_pthread_mutex_init(&_section, nullptr); }
    ~UTCriticalSection() { ut_safe_pthread_mutex_destroy(&_section); }
    UTCriticalSection(const UTCriticalSection&) = delete;
    UTCriticalSection& operator=(const UTCriticalSection&) = delete;

    a_bool exists() const { return mutex() != nullptr; }
    /// For UTLock, which then says whether it is held. Null when there is none.
    a_ut_pthread_mutex* mutex() const { return _section.p_mutex; }

  private:
    a_critical_sect _section;
};

#endif
