#ifndef QUOREL_NETLIB_SMTPSOCKET_H
#define QUOREL_NETLIB_SMTPSOCKET_H

#include <cerrno>

#include "netlib/timedsocket.h"

/// A TimedSocket on which a whole reply has a time-out too. The time-out of each recv alone does
/// not bound a reply that arrives a byte at a time.
///
/// A reply is overdue when it is still incomplete a time-out after its first bytes came, so that
/// together with the first and the last wait it takes three time-outs at most.
class SMTPSocket final : public TimedSocket {
  public:
    using TimedSocket::recv;
    using TimedSocket::send;
    using TimedSocket::TimedSocket;

    /// Milliseconds; 0 or less means no limit, as at the start.
    void setReplyTimeout(int32 timeout_in_ms) { _reply_timeout = timeout_in_ms; }
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
        if (_reads++ == 1) _first_read.sample();
        if (_reads > 2 && _reply_timeout > 0 && unix_limit_reached(_first_read, _reply_timeout)) {
            _overdue = true;
            errno = ETIMEDOUT;
            return -1;
        }
        return TimedSocket::recv(buf, len);
    }

  private:
    int32 _reply_timeout = 0;
    a_bool _overdue = false;
    uint32 _reads = 0;         // since beginReply()
    a_timer_tick _first_read;  // when the first of them was over
};

#endif
