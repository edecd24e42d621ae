#ifndef QUOREL_UTILS_UNIX_UTMUTEX_H
#define QUOREL_UTILS_UNIX_UTMUTEX_H

#include <pthread.h>

#include "utils/etc/uttypes.h"

/// A mutex inside its owner, for UTLock. Not recursive. Unlike std::mutex it cannot throw, so it
/// brings none of the C++ run time's exception machinery into the library, and unlike a critical
/// section its creation cannot fail.
class UTMutex {
  public:
    UTMutex() = default;
    ~UTMutex() { pthread_mutex_destroy(&_mutex); }
    UTMutex(const UTMutex&) = delete;
    UTMutex& operator=(const UTMutex&) = delete;

    void lock() { pthread_mutex_lock(&_mutex); }
    void unlock() { pthread_mutex_unlock(&_mutex); }

  private:
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
};

/// Holds a mutex for the length of a scope: anything with lock() and unlock() that cannot throw,
/// which outlives this object. Of a null pointer, nothing is held; so a lock that may be missing or
/// is not wanted needs no other path.
template <class Mutex>
class UTLock {
  public:
    explicit UTLock(Mutex& mutex) : UTLock(&mutex) {}
    explicit UTLock(Mutex* mutex) : _mutex(mutex) {
        if (is_held()) _mutex->lock();
    }
    ~UTLock() {
        if (is_held()) _mutex->unlock();
    }
    UTLock(const UTLock&) = delete;
    UTLock& operator=(const UTLock&) = delete;

    /// False when there was no mutex; what it guards must then be left alone.
    a_bool is_held() const { return _mutex != nullptr; }

  private:
    Mutex* const _mutex;
};

#endif
