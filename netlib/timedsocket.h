#ifndef QUOREL_NETLIB_TIMEDSOCKET_H
#define QUOREL_NETLIB_TIMEDSOCKET_H

#include <optional>

#include "netlib/netsocket.h"

enum a_socket_wait_code {
    SOCKET_WAIT_TIMED_OUT = 0,
    SOCKET_WAIT_OK = 1,
    SOCKET_WAIT_IDLE = 2,  // a slice passed without activity; time is left
    SOCKET_WAIT_ERROR = 3,
};

/// A socket whose connect, recv and send give up after a time-out measured from their start. They
/// wait in slices of 250 ms and look at the time after a slice without activity, so an operation
/// ends within a slice of its time-out.
///
/// The time-out works on a non-blocking socket only. set_blocking_state() of this class does
/// nothing, so the owner calls the base's:
///
///     TimedSocket socket(SOCK_TCP, false);
///     socket.Socket::set_blocking_state(false);
///     socket.setTimeout(60 * 1000);
///
/// An operation that gave up returns -1 with didTimeout() true and ETIMEDOUT in getLastError().
/// Kept: a recv with an address waits without limit, time-out or not.
class TimedSocket : public Socket {
  public:
    using Socket::Socket;
    TimedSocket() = default;

    using Socket::recv;
    using Socket::send;

    int recv(char* buf, unsigned int len) override;
    /// Sends all of `len` or fails; after a failure it is unknown how much has gone. The time-out
    /// is that of the whole, however slowly the peer takes its parts.
    int send(const char* buf, unsigned int len) override;
    /// Without `yield_func` as send(). With one, only `yield_func` decides how long to go on.
    /// Kept: a stop before anything was sent does not end the call; it waits for room, up to the
    /// time-out, and starts again.
    int send_with_yield(const char* buf, unsigned int len, a_bool (*yield_func)(void*),
                        void* arg) override;
    /// When activity ends the wait without a connection, the error is the socket's own where it
    /// has one pending, else ENOTCONN. An invalid address fails with EINVAL at once.
    int connect(const IPAddress& ip) override;
    /// Does nothing and returns 0.
    int set_blocking_state(a_bool blocking) override;
    /// What the wait recorded is reported once, in preference to errno.
    UTErrorCode getLastError() override;
    int recv(char* buf, unsigned int len, sockaddr_storage* from, socklen_t* fromlen) override;
    int send(const char* buf, unsigned int len, const sockaddr_storage* to,
             socklen_t tolen) override;

    /// Milliseconds; 0 or less means no limit.
    void setTimeout(int32 timeout_in_ms) { _timeout = timeout_in_ms; }
    /// Whether the last timed operation gave up on time.
    a_bool didTimeout() const { return _timed_out; }

    void _clear_error() { _saved_error_code = 0; }
    /// Waits for one slice; bit 0 of `rw_flag` asks for readability, bit 1 for writability. `start`
    /// is the time from which the time-out counts.
    a_socket_wait_code _wait_for_activity(int8 rw_flag, const a_timer_tick& start);

  private:
    template <class Operation>
    int _until_timeout(int8 rw_flag, Operation operation, std::optional<a_timer_tick> start = {});
    uint32 _peek_error();
    /// True, with the time-out recorded, once it has passed since `start`.
    a_bool _past_timeout(const a_timer_tick& start);
    int _confirm_connection();

    int32 _timeout = 0;
    a_bool _timed_out = false;
    int _saved_error_code = 0;  // errno value recorded by the wait, 0 for none
};

#endif
