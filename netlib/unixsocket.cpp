#include "netlib/unixsocket.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "utils/unix/eintr.h"

namespace {

// The rule of most calls here. With errno cleared first, what it holds afterwards is this call's.
template <class Call>
auto repeat_interrupted(Call call) {
    return retry_interrupted([&] {
        errno = 0;
        return call();
    });
}

a_timer_tick elapsed_since(const a_timer_tick& start) {
    const int error = errno;
    a_timer_tick now;
    now.sample();
    errno = error;
    return now - start;
}

// The result is not looked at: a descriptor that cannot be marked is no reason to refuse it.
void mark_close_on_exec(SOCKET s) {
    const int error = errno;
    fcntl(s, F_SETFD, FD_CLOEXEC);
    errno = error;
}

int marked_on_success(SOCKET s, int result) {
    if (result == 0) mark_close_on_exec(s);
    return result;
}

bool kernel_refuses_scope_ids() {
    utsname kernel;
    if (uname(&kernel) == -1) return false;
    int version = 0;
    int patchlevel = 0;
    int sublevel = 0;
    if (std::sscanf(kernel.release, "%d.%d.%d", &version, &patchlevel, &sublevel) != 3)
        return false;
    return version == 2 && patchlevel == 6 && sublevel >= 0 && sublevel <= 12;
}

int connect_within(SOCKET s, const sockaddr* name, socklen_t namelen, int32 timeout_in_ms) {
    a_timer_tick start;
    start.sample();
    for (;;) {
        errno = 0;
        const int result = connect(s, name, namelen);
        if (result != -1 || errno != EINTR) return result;
        if (timeout_in_ms >= 0 && unix_limit_reached(start, timeout_in_ms)) break;
    }
    // POSIX lets an interrupted connection attempt go on.
    errno = EINPROGRESS;
    return -1;
}

// True once there is something to read, an error included; false when waiting failed.
bool wait_until_readable(SOCKET s) {
    constexpr int slice_in_ms = 500;
    pollfd wanted = {.fd = s, .events = POLLIN | POLLERR, .revents = 0};
    int ready = 0;
    while (ready == 0) ready = unix_poll(&wanted, 1, slice_in_ms);
    return ready != -1;
}

}  // namespace

a_bool unix_limit_reached(const a_timer_tick& start, int32 limit_in_ms) {
    return elapsed_since(start) >= a_timer_tick::MilliSeconds(static_cast<uint64>(limit_in_ms));
}

SOCKET unix_socket(int domain, int type, int protocol) {
    // At once: between two calls another thread of the host may fork.
    return socket(domain, type | SOCK_CLOEXEC, protocol);
}

int unix_bind(SOCKET s, const sockaddr* name, socklen_t namelen) {
    return marked_on_success(s, bind(s, name, namelen));
}

int unix_listen(SOCKET s, int backlog) {
    return marked_on_success(s, listen(s, backlog));
}

SOCKET unix_accept(SOCKET s, sockaddr* peer, socklen_t* peerlen) {
    return repeat_interrupted([&] { return accept4(s, peer, peerlen, SOCK_CLOEXEC); });
}

int unix_connect(SOCKET s, const sockaddr* name, socklen_t namelen, int32 timeout_in_ms) {
    sockaddr_in6 without_scope;
    if (name != nullptr && namelen >= sizeof without_scope && name->sa_family == AF_INET6 &&
        kernel_refuses_scope_ids()) {
        std::memcpy(&without_scope, name, sizeof without_scope);
        without_scope.sin6_scope_id = 0;
        name = reinterpret_cast<const sockaddr*>(&without_scope);
        namelen = sizeof without_scope;
    }
    int result = connect_within(s, name, namelen, timeout_in_ms);
    // An attempt that was left going, by a signal or an earlier call, has succeeded meanwhile.
    if (result == -1 && errno == EISCONN) result = 0;
    return marked_on_success(s, result);
}

int unix_shutdown(SOCKET s, int how) {
    return shutdown(s, how);
}

int unix_close(SOCKET s) {
    // Kept: repeated while it fails with EINTR, although the system has then released the number.
    return repeat_interrupted([&] { return close(s); });
}

ssize_t unix_recv(SOCKET s, void* buf, size_t len, int flags) {
    return repeat_interrupted([&] { return recv(s, buf, len, flags); });
}

ssize_t unix_send(SOCKET s, const void* buf, size_t len, int flags) {
    // A peer that has gone is an error, not a SIGPIPE for the host.
    return repeat_interrupted([&] { return send(s, buf, len, flags | MSG_NOSIGNAL); });
}

ssize_t unix_sendto(SOCKET s, const void* buf, size_t len, int flags, const sockaddr* to,
                    socklen_t tolen) {
    return repeat_interrupted([&] { return sendto(s, buf, len, flags | MSG_NOSIGNAL, to, tolen); });
}

ssize_t unix_recvfrom(SOCKET s, void* buf, size_t len, int flags, sockaddr* from,
                      socklen_t* fromlen) {
    if (!wait_until_readable(s)) return -1;
    return repeat_interrupted([&] { return recvfrom(s, buf, len, flags, from, fromlen); });
}

ssize_t unix_recvmsg(SOCKET s, msghdr* message, int flags) {
    if (!wait_until_readable(s)) return -1;
    return repeat_interrupted([&] { return recvmsg(s, message, flags); });
}

int unix_poll(pollfd* fds, nfds_t count, int timeout_in_ms) {
    // poll(2) passes over negative numbers, and so would wait in vain for a socket that is closed.
    for (nfds_t i = 0; i < count; ++i) {
        if (fds[i].fd >= 0) continue;
        errno = EBADF;
        return -1;
    }
    std::optional<a_timer_tick> start;
    int left_in_ms = timeout_in_ms;
    return repeat_interrupted([&] {
        const int ready = poll(fds, count, left_in_ms);
        if (ready == -1 && timeout_in_ms > 0) {
            // From the first signal on: a wait without one, as most are, need not read the clock.
            if (!start) start = a_timer_tick::now();
            const auto passed = static_cast<int64>(elapsed_since(*start).milliSeconds());
            left_in_ms = static_cast<int>(std::max<int64>(timeout_in_ms - passed, 0));
        }
        return ready;
    });
}

int unix_select(int nfds, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
    return repeat_interrupted([&] { return select(nfds, readable, writable, failed, timeout); });
}

int unix_ioctl(SOCKET s, unsigned long request, void* argument) {
    return repeat_interrupted([&] { return ioctl(s, request, argument); });
}

int unix_getsockname(SOCKET s, sockaddr* name, socklen_t* namelen) {
    return getsockname(s, name, namelen);
}

int unix_getpeername(SOCKET s, sockaddr* name, socklen_t* namelen) {
    return getpeername(s, name, namelen);
}

int unix_setsockopt(SOCKET s, int level, int option, const void* value, socklen_t length) {
    return setsockopt(s, level, option, value, length);
}

int unix_getsockopt(SOCKET s, int level, int option, void* value, socklen_t* length) {
    return getsockopt(s, level, option, value, length);
}
