#include "host/quietthread.h"

#include <csignal>

namespace host {

bool start_quiet_thread(void* (*run)(void*), void* argument, pthread_t* joinable) {
    pthread_t thread{};
    // A new thread inherits the signal mask.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool started = pthread_create(&thread, nullptr, run, argument) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!started) return false;
    if (joinable != nullptr)
        *joinable = thread;
    else
        pthread_detach(thread);
    return true;
}

}  // namespace host
