#ifndef QUOREL_UTILS_UNIX_UTLOCK_H
#define QUOREL_UTILS_UNIX_UTLOCK_H

#include "utils/etc/uttypes.h"

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
