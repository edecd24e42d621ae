#ifndef QUOREL_UTILS_UNIX_UTMUTEX_H
#define QUOREL_UTILS_UNIX_UTMUTEX_H

#include <pthread.h>

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

#endif
