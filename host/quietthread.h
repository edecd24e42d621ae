#ifndef QUOREL_HOST_QUIETTHREAD_H
#define QUOREL_HOST_QUIETTHREAD_H

/// Threads in a program that is not ours.

#include <pthread.h>

namespace host {

/// Starts a thread with every signal blocked: the program's handlers run on its own threads. By
/// pthreads, because std::thread ends a program that can have no more threads. The
/// caller joins it through `joinable`, or, where that is null, it is detached. False when no thread
/// can be had.
bool start_quiet_thread(void* (*run)(void*), void* argument, pthread_t* joinable = nullptr);

}  // namespace host

#endif
