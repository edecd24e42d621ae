#ifndef QUOREL_NETLIB_NETSOCKET_H
#define QUOREL_NETLIB_NETSOCKET_H

/// One operating-system socket behind a table of virtual operations.
///
/// Results: an operation returns what its system call returns, 0 or a byte count; failure is -1
/// with the cause in getLastError(), and leaves the socket usable. Nothing is thrown.
/// Descriptors are close-on-exec, interrupted calls are repeated, and a send to a peer that has
/// gone fails with EPIPE without a signal (netlib/unixsocket.h).
/// A socket that is closed, or was never opened, fails every operation with EBADF at once.
/// Buffers, yield arguments and option values are the caller's and only looked at during the call;
/// a null buffer goes with length 0 alone. Lengths are at most INT_MAX, as results are counts.
/// Threads: a socket object is used by one thread at a time; no operation locks.

#include "netlib/unixsocket.h"
#include "utils/contain/utlist.h"
#include "utils/etc/uterror.h"
#include "utils/etc/uttypes.h"

class IPAddress;

enum a_socket_type {
    SOCK_UNKNOWN = 0,
    SOCK_UDP = 1,
    SOCK_TCP = 2,
    SOCK_UD = 3,  // a local (Unix-domain) stream socket
};

enum a_socket_shutdown_flag {
    SHUTDOWN_SEND = 0,
    SHUTDOWN_RECV = 1,
    SHUTDOWN_BOTH = 2,
};

/// A copy shares the descriptor of its original, and no destructor closes it: whoever opened the
/// socket calls close(), once, on one of the copies.
///
/// The order of the virtual operations is a binary interface; new ones go to the end.
class Socket : public c_utils_link {
  public:
    /// Closed, without a descriptor, of unknown type, in blocking mode.
    Socket() = default;
    Socket(int domain, int type, int protocol) { init(domain, type, protocol); }
    Socket(a_socket_type type, a_bool ipv6) { init(type, ipv6); }
    /// Adopts an open descriptor, as init() does.
    /// Kept: isIPv6() is false afterwards, whatever `ipv6` says.
    Socket(SOCKET s, a_socket_type type, a_bool ipv6);
    Socket(const Socket&) = default;
    Socket& operator=(const Socket&) = default;

    /// Receives a datagram and its sender. Kept: waits for one without limit, in any mode, and on a
    /// TimedSocket past its time-out.
    virtual int recv(char* buf, unsigned int len, IPAddress& from);
    /// Returns 0 when the peer has closed its side.
    virtual int recv(char* buf, unsigned int len);
    virtual int send(const char* buf, unsigned int len, const IPAddress& to);
    /// send_with_yield() without a yield function: sends all of `len` or fails.
    virtual int send(const char* buf, unsigned int len);
    /// Sends until all of `len` has gone and returns it. Whenever the socket takes only a part or
    /// none (EAGAIN), `yield_func`(`arg`) is called, to wait or to see to other work; it returns
    /// true to go on at once, false to stop. After a stop the result is the count sent so far, or
    /// -1 with EAGAIN when that is 0. A null `yield_func` waits, without limit, for room.
    virtual int send_with_yield(const char* buf, unsigned int len, a_bool (*yield_func)(void*),
                                void* arg);
    /// Ends one direction or, with any other value, both. Does not close.
    virtual void shutdown(a_socket_shutdown_flag flag);
    /// Gives the descriptor back; later calls do nothing. Copies keep the number, which the process
    /// may use anew: they must not be used, but for taking them out of a SelectList.
    virtual void close();
    /// An invalid address fails with EINVAL.
    virtual int bind(const IPAddress& ip);
    /// Fails with EINVAL, without a system call, when `ip` is invalid. An existing connection
    /// counts as success.
    virtual int connect(const IPAddress& ip);
    virtual int getsockname(IPAddress& ip);
    virtual int getpeername(IPAddress& ip);
    virtual int setsockopt(int level, int optname, const char* optval, socklen_t optlen);
    virtual int getsockopt(int level, int optname, char* optval, socklen_t* optlen);
    virtual int listen(int backlog);
    /// On success `newsock` holds the accepted descriptor (its previous one is not closed) in
    /// blocking mode, with this socket's type and not marked as IPv6, and `peer` its far end.
    virtual int accept(IPAddress& peer, Socket& newsock);
    /// "A", "B", "C" or "" by the first bits of the local IPv4 address.
    virtual const char* get_class();
    virtual int allow_broadcast();
    /// Joins a multicast group on an interface: IPv6, without loopback of what is sent, when both
    /// this socket and `group` are IPv6 (the interface is then `iface`'s scope id), IPv4 otherwise.
    virtual int add_membership(IPAddress& group, IPAddress& iface);
    virtual int set_blocking_state(a_bool blocking);
    /// Kept: the flag goes into TCP_NODELAY as it is, so true turns Nagle's algorithm off.
    virtual int set_Nagle_algorithm(a_bool flag);
    /// What the last failed operation failed with, as an errno value; the type is ET_POSIX.
    virtual UTErrorCode getLastError();
    /// As recv with IPAddress. `*fromlen` is the room at `from` and becomes the length stored; both
    /// may be null, as may `to` below where the socket has a peer.
    virtual int recv(char* buf, unsigned int len, sockaddr_storage* from, socklen_t* fromlen);
    virtual int send(const char* buf, unsigned int len, const sockaddr_storage* to,
                     socklen_t tolen);

    /// The init functions open or adopt a descriptor; one that the object holds is not closed.
    /// This one takes what socket(2) takes. Kept: the type follows from the protocol number, so
    /// that protocol 0 gives SOCK_UNKNOWN.
    a_bool init(int domain, int type, int protocol);
    /// Fails for SOCK_UNKNOWN, and when IPv6 is asked for on a host without it.
    /// Kept: SOCK_UD opens a local stream socket whose type then reads SOCK_UNKNOWN.
    a_bool init(a_socket_type type, a_bool ipv6);
    /// Adopts an open descriptor, taken to be in blocking mode; always true.
    a_bool init(SOCKET s, a_socket_type type, a_bool ipv6);
    /// Becomes a copy of `other`; always true.
    a_bool init(const Socket& other);

    /// The same descriptor; a socket that was closed is still known by the one that it had.
    a_bool operator==(const Socket& other) const { return _known_as == other._known_as; }

    a_socket_type getType() const { return _type; }
    a_bool is_tcp() const { return _type == SOCK_TCP; }
    a_bool is_udp() const { return _type == SOCK_UDP; }
    a_bool isIPv6() const { return _isv6; }
    a_bool is_closed() const { return _closed; }
    a_bool get_blocking_state() const { return _blocking; }
    /// -1 when closed.
    SOCKET getSocket() const { return _sock; }

    /// Waits until the socket can do what `read` and `write` ask for; each stays true only if it
    /// was asked for and is possible. Returns 0 when the time passes without, -1 when waiting
    /// failed or the socket has an error pending: EIO, and the error itself in SO_ERROR. The time
    /// counts in whole milliseconds.
    /// Kept: a connection that is hung up counts as 1, with neither true unless there is more to it
    /// (what is left to read, the end of what was sent, or room).
    int select(a_bool& read, a_bool& write, uint32 timeout_in_us);

  protected:
    SOCKET _sock = -1;
    a_bool _closed = true;
    a_socket_type _type = SOCK_UNKNOWN;
    a_bool _isv6 = false;
    a_bool _blocking = true;

    /// Whether `ip` may reach connect(2); sets errno to EINVAL if not.
    static a_bool _is_usable(const IPAddress& ip);
    /// The error pending on the socket, which this takes from it; 0 for none.
    int _take_pending_error();

  private:
    void _hold(SOCKET s) { _sock = _known_as = s; }
    a_bool _wait_for_room();
    template <class Value>
    int _set_option(int level, int optname, const Value& value);

    SOCKET _known_as = -1;  // the last descriptor held
};

/// A datagram socket.
class UdpSocket : public Socket {
  public:
    /// Without a descriptor until reinit() or init().
    UdpSocket() = default;
    explicit UdpSocket(a_bool ipv6) : Socket(SOCK_UDP, ipv6) {}
    /// Adopts an open descriptor.
    UdpSocket(SOCKET s, a_bool ipv6) { init(s, SOCK_UDP, ipv6); }

    /// Closes the socket and opens a fresh, unbound one of the same address family and blocking
    /// mode. False when that fails; the socket is then closed.
    a_bool reinit();

    /// The longest message that can be sent; -1, no limit known.
    int get_max_msg_size() const { return -1; }
};

using Socket_list = c_utils_list<Socket>;
using Socket_iter = c_utils_iter<Socket>;

#endif
