#include "utils/unix/signalshield.h"

#include <cerrno>
#include <ctime>

#include "utils/unix/eintr.h"

namespace {

// What moving bytes raises, in the thread that moves them: a pipe without reader, the limit on file
// sizes, the terminal of another process group.
constexpr int shielded_signals[] = {SIGPIPE, SIGXFSZ, SIGTTIN, SIGTTOU};

sigset_t shielded_set() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : shielded_signals) sigaddset(&set, signal);
    return set;
}

bool contains_any(const sigset_t& set) {
    for (const int signal : shielded_signals) {
        if (sigismember(&set, signal) == 1) return true;
    }
    return false;
}

}  // namespace

SignalShield::SignalShield() {
    const sigset_t shielded = shielded_set();
    pthread_sigmask(SIG_BLOCK, &shielded, &_previous_mask);
    sigemptyset(&_pending_before);
    // Only a host that blocks these signals itself can have one pending already.
    if (contains_any(_previous_mask)) sigpending(&_pending_before);
}

void SignalShield::swallow() {
    // A signal that was pending before is the host's own and stays.
    const int saved_errno = errno;
    sigset_t pending;
    sigpending(&pending);
    for (const int signal : shielded_signals) {
        if (sigismember(&pending, signal) != 1 || sigismember(&_pending_before, signal) == 1)
            continue;
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, signal);
        // Another thread may have taken it meanwhile, if it was meant for the process.
        const timespec no_wait = {0, 0};
        retry_interrupted([&] { return sigtimedwait(&only, nullptr, &no_wait); });
    }
    errno = saved_errno;
}

SignalShield::~SignalShield() {
    const int saved_errno = errno;
    pthread_sigmask(SIG_SETMASK, &_previous_mask, nullptr);
    errno = saved_errno;
}
