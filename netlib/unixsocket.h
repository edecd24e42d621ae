#ifndef QUOREL_NETLIB_UNIXSOCKET_H
#define QUOREL_NETLIB_UNIXSOCKET_H

/// The one place where the network layer calls the system's socket interface (POSIX.1-2008,
/// accept4(2)). Each function takes and returns what the system call of its name does, -1 with
/// errno on failure, and adds what every caller relies on:
///
///   - A call that a signal interrupts is made again: EINTR never reaches a caller. errno is 0
///     after a call of this kind that succeeded.
///   - Descriptors are close-on-exec from their creation, so that no child process of the host,
///     forked on whichever thread, inherits a connection.
///   - A send to a peer that has gone fails with EPIPE and raises no SIGPIPE, whose default action
///     would end the host.
///
/// Threads: no state is kept; only the clock of utils/unix/timelib.h is read.

#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include "utils/etc/uttypes.h"
#include "utils/unix/timelib.h"

/// A socket descriptor; -1 is none.
using SOCKET = int;

/// Whether the time since `start` has reached `limit_in_ms`, in whole ticks of the timer: a limit
/// shorter than a tick is reached at once. Leaves errno alone.
a_bool unix_limit_reached(const a_timer_tick& start, int32 limit_in_ms);

SOCKET unix_socket(int domain, int type, int protocol);

/// bind and listen also mark the descriptor close-on-exec, for those that were adopted.
int unix_bind(SOCKET s, const sockaddr* name, socklen_t namelen);
int unix_listen(SOCKET s, int backlog);
SOCKET unix_accept(SOCKET s, sockaddr* peer, socklen_t* peerlen);

/// Connects, or on a non-blocking socket starts to. `timeout_in_ms` bounds only how long an
/// interrupted call is made again, negative meaning for ever; it does not bound the call itself.
/// A connection that exists already (EISCONN) is success. When the limit ends the repeating, the
/// kernel still works on the connection, and errno is EINPROGRESS.
///
/// Linux 2.6.0 to 2.6.12 refuses scope ids in an IPv6 destination, so there it gets none.
int unix_connect(SOCKET s, const sockaddr* name, socklen_t namelen, int32 timeout_in_ms);

int unix_shutdown(SOCKET s, int how);
int unix_close(SOCKET s);

ssize_t unix_recv(SOCKET s, void* buf, size_t len, int flags);
ssize_t unix_send(SOCKET s, const void* buf, size_t len, int flags);
ssize_t unix_sendto(SOCKET s, const void* buf, size_t len, int flags, const sockaddr* to,
                    socklen_t tolen);

/// Kept: these two first wait, without limit, until there is something to read, on a non-blocking
/// socket too.
ssize_t unix_recvfrom(SOCKET s, void* buf, size_t len, int flags, sockaddr* from,
                      socklen_t* fromlen);
ssize_t unix_recvmsg(SOCKET s, msghdr* message, int flags);

/// A negative time-out waits for ever. Interruptions do not lengthen the wait. A negative
/// descriptor fails with EBADF, where poll(2) would pass over it and wait.
int unix_poll(pollfd* fds, nfds_t count, int timeout_in_ms);

/// As Linux does it: what is left of the time-out is written back, null waits for ever.
int unix_select(int nfds, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout);

int unix_ioctl(SOCKET s, unsigned long request, void* argument);

// Calls that nothing interrupts, as they are.
int unix_getsockname(SOCKET s, sockaddr* name, socklen_t* namelen);
int unix_getpeername(SOCKET s, sockaddr* name, socklen_t* namelen);
int unix_setsockopt(SOCKET s, int level, int option, const void* value, socklen_t length);
int unix_getsockopt(SOCKET s, int level, int option, void* value, socklen_t* length);

#endif
