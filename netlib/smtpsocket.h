#ifndef QUOREL_NETLIB_SMTPSOCKET_H
#define QUOREL_NETLIB_SMTPSOCKET_H

#include <algorithm>
#include <cerrno>
#include <limits>

#include <netinet/in.h>
#include <netinet/tcp.h>

#include "netlib/timedsocket.h"

/// A TimedSocket that knows of whole replies and of whole flights of bytes.
///
/// A reply has one time-out for its first bytes and one, from then on, for the rest. It is overdue
/// when that has passed. (The time-out of each recv alone does not bound a reply that arrives a
/// byte at a time.)
///
/// A flight is what is sent before an answer is awaited; see isFlightOneSegment().
class SMTPSocket final : public TimedSocket {
  public:
    using TimedSocket::recv;
    using TimedSocket::send;
    using TimedSocket::TimedSocket;

    /// Milliseconds, for each operation and for both parts of a reply; 0 or less means no limit, as
    /// at the start.
    void setTimeout(int32 timeout_in_ms) {
        _reply_timeout = timeout_in_ms;
        TimedSocket::setTimeout(timeout_in_ms);
    }
    a_bool hasTimeout() const { return _reply_timeout > 0; }
    /// What is received from here on belongs to a new reply.
    void beginReply() {
        _reads = 0;
        _overdue = false;
    }
    /// Whether the reply ran out of time; every recv fails with ETIMEDOUT then.
    a_bool isReplyOverdue() const { return _overdue; }

    /// What is sent from here on is a flight of its own.
    void beginFlight() { _flight_sends = _flight_bytes = 0; }
    /// Whether the flight left in a single segment, which Nagle's algorithm (RFC 896) does not hold
    /// back when all before it is acknowledged.
    a_bool isFlightOneSegment() { return _flight_sends == 1 && _flight_bytes <= segment_size(); }

    int send(const char* buf, unsigned int len) override {
        ++_flight_sends;
        _flight_bytes += len;
        return TimedSocket::send(buf, len);
    }

    // One read brings most replies, so that the clock is looked at only from the second on.
    int recv(char* buf, unsigned int len) override {
        if (_reads++ == 0 || !hasTimeout()) return TimedSocket::recv(buf, len);
        if (_reads == 2) _first_read.sample();
        const int32 left = time_left();
        if (left == 0) {
            _overdue = true;
            errno = ETIMEDOUT;
            return -1;
        }
        TimedSocket::setTimeout(left);
        const int count = TimedSocket::recv(buf, len);
        TimedSocket::setTimeout(_reply_timeout);
        return count;
    }

  private:
    /// The most that a segment of this connection holds; asked once. 0 when that is not known.
    unsigned int segment_size() {
        if (_segment_size == unknown) {
            int size = 0;
            socklen_t length = sizeof size;
            const auto at = reinterpret_cast<char*>(&size);
            const a_bool told = getsockopt(IPPROTO_TCP, TCP_MAXSEG, at, &length) == 0 && size > 0;
            _segment_size = told ? static_cast<unsigned int>(size) : 0;
        }
        return _segment_size;
    }
    int32 time_left() const {
        a_timer_tick now;
        now.sample();
        const uint64 passed = now < _first_read ? 0 : (now - _first_read).milliSeconds();
        const auto limit = static_cast<uint64>(_reply_timeout);
        return static_cast<int32>(limit - std::min(passed, limit));
    }

    static constexpr auto unknown = std::numeric_limits<unsigned int>::max();

    unsigned int _segment_size = unknown;
    unsigned int _flight_sends = 0;  // since beginFlight()
    unsigned int _flight_bytes = 0;
    int32 _reply_timeout = 0;
    a_bool _overdue = false;
    uint32 _reads = 0;         // since beginReply()
    a_timer_tick _first_read;  // when the first of them was over
};

#endif
