#ifndef QUOREL_HOST_WORKER_GUARD_H
#define QUOREL_HOST_WORKER_GUARD_H

/// The process that a host knows as its worker: it makes no calls, so that no call can hold it up
/// or bring it down, and whatever ends the one that does (a crash, a signal, the host's end) it
/// ends all that was started, and then itself in the same way.

#include <csignal>

#include <sys/types.h>

namespace host {

/// To the guard, with a call's number as its value: cancels that call. It passes it on. Of the kind
/// that queues, because one that comes late must not take the place of the next call's.
inline const int cancel_signal = SIGRTMIN;
/// To each of the two processes, from the kernel: the parent has ended, or the thread of it that
/// had started the process.
inline constexpr int orphan_signal = SIGUSR2;

/// Prepares a process for either part: takes in orphans, hears of its parent's end by
/// orphan_signal, and blocks what a terminal or an administrator sends to a whole group. Its end
/// is decided by its parent's.
void become_worker();

/// Guards `server`, a child of this process. `socket` ends when the host does, a process that had
/// the number `host`.
[[noreturn]] void guard(pid_t server, int socket, pid_t host);

}  // namespace host

#endif
