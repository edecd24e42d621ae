#ifndef QUOREL_NETLIB_SMTPSOCKET_H
#define QUOREL_NETLIB_SMTPSOCKET_H

#include <algorithm>
#include <cerrno>

#include "netlib/timedsocket.h"

/// A TimedSocket on which a whole reply has a time-out too. The time-out of each recv alone does
/// not bound a reply that arrives a byte at a time.
///
/// A reply has one time-out for its first bytes and one, from then on, for the rest. It is overdue
/// when that has passed.
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

    // Nearly always the socket takes everything at once, and no time-out has to be begun for that.
    int send(const char* buf, unsigned int len) override {
        if (didTimeout()) return TimedSocket::send(buf, len);
        const ssize_t count = unix_send(_sock, buf, len, 0);
        const unsigned int sent = count == -1 ? 0 : static_cast<unsigned int>(count);
        if (sent == len) return static_cast<int>(len);
        return TimedSocket::send(buf + sent, len - sent) == -1 ? -1 : static_cast<int>(len);
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
    int32 time_left() const {
        a_timer_tick now;
        now.sample();
        const uint64 passed = now < _first_read ? 0 : (now - _first_read).milliSeconds();
        const auto limit = static_cast<uint64>(_reply_timeout);
        return static_cast<int32>(limit - std::min(passed, limit));
    }

    int32 _reply_timeout = 0;
    a_bool _overdue = false;
    uint32 _reads = 0;         // since beginReply()
    a_timer_tick _first_read;  // when the first of them was over
};

#endif
