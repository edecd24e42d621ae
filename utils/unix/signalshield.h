#ifndef QUOREL_UTILS_UNIX_SIGNALSHIELD_H
#define QUOREL_UTILS_UNIX_SIGNALSHIELD_H

#include <csignal>

/// Keeps a write from ending the host process. While the object lives, the calling thread has
/// SIGPIPE (a pipe without reader) and SIGXFSZ (a file at its size limit) blocked; a write that
/// meets either fails with EPIPE or EFBIG as usual, and swallow() then removes the signal that came
/// with it. The destructor restores the thread's mask and leaves errno alone.
///
/// One object belongs to one thread. Signals that were already pending stay pending.
class SignalShield {
  public:
    SignalShield();
    ~SignalShield();
    SignalShield(const SignalShield&) = delete;
    SignalShield& operator=(const SignalShield&) = delete;

    /// Call after a write that failed, before the object goes. errno is left alone.
    void swallow();

  private:
    sigset_t _previous_mask;
    sigset_t _pending_before;
};

#endif
