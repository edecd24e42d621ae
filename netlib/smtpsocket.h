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
/// Nagle's algorithm (RFC 896), which is on, holds a segment back while an earlier one is not
/// acknowledged, and a peer that has nothing to say acknowledges late. So what was sent is pushed
/// before an answer is awaited, unless it left in a single segment with nothing before it: the
/// reply to a command acknowledges the command.
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

    /// While it lives, what is received belongs to a new reply, and what is sent is TLS's own.
    class Reply {
      public:
        explicit Reply(SMTPSocket& socket) : _socket(socket) { _socket.begin_reply(); }
        ~Reply() { _socket.end_reply(); }
        Reply(const Reply&) = delete;
        Reply& operator=(const Reply&) = delete;

      private:
        SMTPSocket& _socket;
    };

    /// Whether the reply ran out of time; every recv fails with ETIMEDOUT then.
    a_bool isReplyOverdue() const { return _overdue; }

    int send(const char* buf, unsigned int len) override {
        _unacknowledged.add(len);
        if (_in_reply) _own_words.add(len);
        _pushed = false;
        return TimedSocket::send(buf, len);
    }

    int recv(char* buf, unsigned int len) override {
        push();
        if (_reads++ == 0) return first_recv(buf, len);
        if (_reply_timeout <= 0) return TimedSocket::recv(buf, len);
        // One read brings most replies, so that the clock is looked at only from the second on.
        if (_reads == 2) _first_read = a_timer_tick::now();
        const int32 left = time_left();
        if (left == 0) {
            _overdue = true;
            errno = ETIMEDOUT;
            return -1;
        }
        return recv_within(left, buf, len);
    }

  private:
    struct a_flight {
        void add(unsigned int len) {
            ++sends;
            bytes += len;
        }
        uint64 sends = 0, bytes = 0;
    };

    void begin_reply() {
        _reads = 0;
        _overdue = false;
        _in_reply = true;
        _own_words = {};
    }
    // Nobody has answered what TLS said by itself, to a request for new keys for instance.
    void end_reply() {
        _in_reply = false;
        _unacknowledged = _own_words;
    }

    // A reply is seldom there when it is first looked for: a peer that answers at once answers
    // after that. So the wait comes before the look, which then needs neither a second one nor the
    // clock.
    int first_recv(char* buf, unsigned int len) {
        constexpr int32 slice_in_ms = 250;
        a_bool readable = true;
        a_bool writable = false;
        const int ready = select(readable, writable, slice_in_ms * 1000);
        if (ready != 0 || _reply_timeout <= 0) return TimedSocket::recv(buf, len);
        return recv_within(std::max(_reply_timeout - slice_in_ms, 1), buf, len);
    }

    int recv_within(int32 timeout_in_ms, char* buf, unsigned int len) {
        TimedSocket::setTimeout(timeout_in_ms);
        const int count = TimedSocket::recv(buf, len);
        TimedSocket::setTimeout(_reply_timeout);
        return count;
    }

    // Linux sends what it holds back when the option is set (tcp(7)), and queued data stays exempt
    // from Nagle's algorithm when it is cleared again.
    void push() {
        if (_pushed) return;
        _pushed = true;
        if (_unacknowledged.sends == 1 && _unacknowledged.bytes <= segment_size()) return;
        set_Nagle_algorithm(true);
        set_Nagle_algorithm(false);
    }

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
        const a_timer_tick now = a_timer_tick::now();
        const uint64 passed = now < _first_read ? 0 : (now - _first_read).milliSeconds();
        const auto limit = static_cast<uint64>(_reply_timeout);
        return static_cast<int32>(limit - std::min(passed, limit));
    }

    static constexpr auto unknown = std::numeric_limits<unsigned int>::max();

    unsigned int _segment_size = unknown;
    a_flight _unacknowledged;  // what may not be acknowledged yet
    a_flight _own_words;       // of that, what TLS said during the reply
    a_bool _in_reply = false;
    a_bool _pushed = true;  // nothing was sent since the last push
    int32 _reply_timeout = 0;
    a_bool _overdue = false;
    uint32 _reads = 0;         // of this reply
    a_timer_tick _first_read;  // when the first of them was over
};

#endif
