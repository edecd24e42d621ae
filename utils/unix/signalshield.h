#ifndef QUOREL_UTILS_UNIX_SIGNALSHIELD_H
#define QUOREL_UTILS_UNIX_SIGNALSHIELD_H

#include <csignal>

/// Keeps a read or write from ending or stopping the host process. While the object lives, the
/// calling thread has the signals blocked that a transfer can raise: SIGPIPE (a pipe without
/// reader), SIGXFSZ (a file at its size limit), SIGTTIN and SIGTTOU (the terminal of a process in
/// the background). A call that meets one of the first two fails with EPIPE or EFBIG as usual, and
/// swallow() then removes the signal that came with it; a read from the terminal fails with EIO, a
/// write to it goes through. The destructor restores the thread's mask and leaves errno alone.
///
/// One object belongs to one thread. Signals that were already pending stay pending.
class SignalShield {
  public:
    SignalShield();
    ~SignalShield();
    SignalShield(const SignalShield&) = delete;
    SignalShield& operator=(const SignalShield&) = delete;

    /// Call after a transfer that failed, before the object goes. errno is left alone.
    void swallow();

  private:
    sigset_t _previous_mask;
    sigset_t _pending_before;
};

#endif
