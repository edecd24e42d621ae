#include "netlib/timedsocket.h"

#include <cerrno>

#include "netlib/ipaddress.h"

namespace {

// The bits of _wait_for_activity's rw_flag.
constexpr int8 for_reading = 1;
constexpr int8 for_writing = 2;

a_bool worth_waiting(uint32 error) {
    return error == EAGAIN || error == EINPROGRESS;
}

a_bool connection_under_way(uint32 error) {
    return worth_waiting(error) || error == EALREADY;
}

a_bool stop_at_once(void*) {
    return false;
}

}  // namespace

// The one pattern of the timed data operations: try, and while the socket is not ready wait for it,
// slice by slice. The first attempt takes no time that counts, unless `start` is given, so the
// clock is read only after one that found the socket not ready: reading it costs as much as the
// attempt.
template <class Operation>
int TimedSocket::_until_timeout(int8 rw_flag, Operation operation,
                                std::optional<a_timer_tick> start) {
    _timed_out = false;
    a_socket_wait_code wait = SOCKET_WAIT_IDLE;
    while (wait == SOCKET_WAIT_OK || wait == SOCKET_WAIT_IDLE) {
        _clear_error();
        const int result = operation();
        if (result != -1) return result;
        if (!worth_waiting(_peek_error())) return -1;
        if (!start) start = a_timer_tick::now();
        // A socket that is ready again and again and yet refuses never comes to an idle slice.
        if (wait == SOCKET_WAIT_OK && _past_timeout(*start)) return -1;
        wait = _wait_for_activity(rw_flag, *start);
    }
    return -1;
}

int TimedSocket::recv(char* buf, unsigned int len) {
    return _until_timeout(for_reading, [&] { return Socket::recv(buf, len); });
}

int TimedSocket::recv(char* buf, unsigned int len, sockaddr_storage* from, socklen_t* fromlen) {
    return _until_timeout(for_reading, [&] { return Socket::recv(buf, len, from, fromlen); });
}

int TimedSocket::send(const char* buf, unsigned int len) {
    return _until_timeout(for_writing, [&] { return Socket::send(buf, len); });
}

int TimedSocket::send(const char* buf, unsigned int len, const sockaddr_storage* to,
                      socklen_t tolen) {
    return _until_timeout(for_writing, [&] { return Socket::send(buf, len, to, tolen); });
}

int TimedSocket::send_with_yield(const char* buf, unsigned int len, a_bool (*yield_func)(void*),
                                 void* arg) {
    if (yield_func != nullptr) {
        return _until_timeout(
            for_writing, [&] { return Socket::send_with_yield(buf, len, yield_func, arg); },
            a_timer_tick::now());
    }
    // The base would wait for room without limit. Stopped at every partial send, it is waited for
    // here, and the parts together keep the time-out.
    unsigned int sent = 0;
    return _until_timeout(for_writing, [&] {
        const int count = Socket::send_with_yield(buf + sent, len - sent, stop_at_once, nullptr);
        if (count == -1) return -1;
        sent += static_cast<unsigned int>(count);
        if (sent == len) return static_cast<int>(len);
        // Sent in part counts as not ready, so that the rest is waited for.
        errno = EAGAIN;
        return -1;
    });
}

int TimedSocket::connect(const IPAddress& ip) {
    a_timer_tick start;
    start.sample();
    _timed_out = false;
    _clear_error();
    if (!_is_usable(ip)) return -1;
    a_socket_wait_code wait = SOCKET_WAIT_IDLE;
    while (wait == SOCKET_WAIT_IDLE) {
        _clear_error();
        const auto* name = reinterpret_cast<const sockaddr*>(ip.get_sockaddr());
        // Asked anew in each slice, for connect(2) also tells how the attempt stands.
        if (unix_connect(_sock, name, ip.get_sockaddr_len(), _timeout) != -1) return 0;
        if (!connection_under_way(_peek_error())) return -1;
        wait = _wait_for_activity(for_reading | for_writing, start);
    }
    return wait == SOCKET_WAIT_OK ? _confirm_connection() : -1;
}

int TimedSocket::_confirm_connection() {
    // A socket is ready for writing after a failed attempt, too, but has no peer then.
    IPAddress peer;
    if (getpeername(peer) != -1) return 0;
    _saved_error_code = ENOTCONN;
    return -1;
}

int TimedSocket::set_blocking_state(a_bool) {
    return 0;
}

UTErrorCode TimedSocket::getLastError() {
    if (_saved_error_code == 0) return Socket::getLastError();
    const UTErrorCode saved = UTErrorCode::from_errno(_saved_error_code);
    _clear_error();
    return saved;
}

// Like getLastError(), but leaves the error to be reported to the caller.
uint32 TimedSocket::_peek_error() {
    const int saved = _saved_error_code;
    const uint32 error = getLastError().code();
    _saved_error_code = saved;
    return error;
}

a_socket_wait_code TimedSocket::_wait_for_activity(int8 rw_flag, const a_timer_tick& start) {
    constexpr uint32 slice_in_us = 250000;
    _clear_error();
    a_bool read = (rw_flag & for_reading) != 0;
    a_bool write = (rw_flag & for_writing) != 0;
    const int ready = select(read, write, slice_in_us);
    if (ready == -1) {
        _saved_error_code = _take_pending_error();
        return SOCKET_WAIT_ERROR;
    }
    if (ready == 1) return SOCKET_WAIT_OK;
    return _past_timeout(start) ? SOCKET_WAIT_TIMED_OUT : SOCKET_WAIT_IDLE;
}

a_bool TimedSocket::_past_timeout(const a_timer_tick& start) {
    if (_timeout < 1 || !unix_limit_reached(start, _timeout)) return false;
    _timed_out = true;
    _saved_error_code = ETIMEDOUT;
    return true;
}
