#include "netlib/netsocket.h"

#include <cerrno>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>

#include "netlib/ipaddress.h"
#include "netlib/netutil.h"

namespace {

const sockaddr* as_sockaddr(const sockaddr_storage* storage) {
    return reinterpret_cast<const sockaddr*>(storage);
}

sockaddr* as_sockaddr(sockaddr_storage* storage) {
    return reinterpret_cast<sockaddr*>(storage);
}

// Runs `call`(storage, &length), which stores an address, on the whole of `ip`'s storage whatever
// `ip` held before. A failed call leaves `ip`'s length and validity alone.
template <class Call>
int store_address(IPAddress& ip, Call call) {
    socklen_t length = sizeof(sockaddr_storage);
    const int result = call(ip.get_sockaddr(), &length);
    if (result == -1) return -1;
    *ip.get_sockaddr_len_ptr() = length;
    ip.setValid(true);
    return result;
}

a_socket_type type_of(int domain, int protocol) {
    constexpr int local_socket_protocol = 3;
    if (protocol == IPPROTO_TCP) return SOCK_TCP;
    if (protocol == IPPROTO_UDP) return SOCK_UDP;
    if (protocol == local_socket_protocol && domain == AF_UNIX) return SOCK_UD;
    return SOCK_UNKNOWN;
}

}  // namespace

Socket::Socket(SOCKET s, a_socket_type type, a_bool) {
    // Kept: the address family given is lost, so an adopted socket never counts as IPv6.
    init(s, type, false);
}

a_bool Socket::init(int domain, int type, int protocol) {
    _hold(unix_socket(domain, type, protocol));
    if (_sock == -1) return false;
    _closed = false;
    _isv6 = domain == AF_INET6;
    _type = type_of(domain, protocol);
    return true;
}

a_bool Socket::init(a_socket_type type, a_bool ipv6) {
    _isv6 = false;
    if (ipv6 && !TcpUtil::IsIPv6Supported()) return false;
    const int domain = ipv6 ? AF_INET6 : AF_INET;
    switch (type) {
    case SOCK_TCP:
        return init(domain, SOCK_STREAM, IPPROTO_TCP);
    case SOCK_UDP:
        return init(domain, SOCK_DGRAM, IPPROTO_UDP);
    case SOCK_UD:
        return init(AF_UNIX, SOCK_STREAM, 0);
    default:
        return false;
    }
}

a_bool Socket::init(SOCKET s, a_socket_type type, a_bool ipv6) {
    _hold(s);
    _closed = false;
    _type = type;
    _isv6 = ipv6;
    _blocking = true;
    return true;
}

a_bool Socket::init(const Socket& other) {
    *this = other;
    return true;
}

int Socket::recv(char* buf, unsigned int len, IPAddress& from) {
    return store_address(from, [&](sockaddr_storage* storage, socklen_t* length) {
        return recv(buf, len, storage, length);
    });
}

int Socket::recv(char* buf, unsigned int len) {
    return static_cast<int>(unix_recv(_sock, buf, len, 0));
}

int Socket::recv(char* buf, unsigned int len, sockaddr_storage* from, socklen_t* fromlen) {
    return static_cast<int>(unix_recvfrom(_sock, buf, len, 0, as_sockaddr(from), fromlen));
}

int Socket::send(const char* buf, unsigned int len, const IPAddress& to) {
    return send(buf, len, to.get_sockaddr(), to.get_sockaddr_len());
}

int Socket::send(const char* buf, unsigned int len) {
    return send_with_yield(buf, len, nullptr, nullptr);
}

int Socket::send(const char* buf, unsigned int len, const sockaddr_storage* to, socklen_t tolen) {
    return static_cast<int>(unix_sendto(_sock, buf, len, 0, as_sockaddr(to), tolen));
}

int Socket::send_with_yield(const char* buf, unsigned int len, a_bool (*yield_func)(void*),
                            void* arg) {
    unsigned int sent = 0;
    for (;;) {
        const ssize_t count = unix_send(_sock, buf + sent, len - sent, 0);
        if (count != -1) {
            sent += static_cast<unsigned int>(count);
            if (sent == len) return static_cast<int>(len);
        } else if (getLastError().code() != EAGAIN) {  // not errno: a derived class knows better
            return -1;
        }
        if (yield_func == nullptr) {
            if (!_wait_for_room()) return -1;
        } else if (!yield_func(arg)) {
            break;
        }
    }
    // What has left cannot be taken back, so that a stop is no failure then.
    if (sent > 0) return static_cast<int>(sent);
    errno = EAGAIN;
    return -1;
}

// False when waiting failed. An error pending on the socket is then the cause, and goes into errno.
a_bool Socket::_wait_for_room() {
    constexpr uint32 longest_wait_in_us = 0xFFFFFFFF;
    a_bool read = false;
    a_bool write = true;
    if (select(read, write, longest_wait_in_us) != -1) return true;
    const int pending = _take_pending_error();
    if (pending != 0) errno = pending;
    return false;
}

int Socket::_take_pending_error() {
    // The system forgets this error as it tells it (socket(7)): who asks has to use the answer.
    int pending = 0;
    socklen_t length = sizeof pending;
    if (getsockopt(SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&pending), &length) == -1)
        return 0;
    return pending;
}

int Socket::select(a_bool& read, a_bool& write, uint32 timeout_in_us) {
    // poll(2), as an fd_set has no room for the high descriptors of a large server.
    pollfd wanted = {.fd = _sock, .events = POLLERR, .revents = 0};
    if (read) wanted.events |= POLLIN;
    if (write) wanted.events |= POLLOUT;
    const int ready = unix_poll(&wanted, 1, static_cast<int>(timeout_in_us / 1000));
    if (ready == -1) return -1;
    if ((wanted.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    if ((wanted.revents & POLLERR) != 0) {
        errno = EIO;  // SO_ERROR says more, unless another call has taken it already
        return -1;
    }
    read = read && (wanted.revents & POLLIN) != 0;
    write = write && (wanted.revents & POLLOUT) != 0;
    return ready;
}

void Socket::shutdown(a_socket_shutdown_flag flag) {
    switch (flag) {
    case SHUTDOWN_SEND:
        unix_shutdown(_sock, SHUT_WR);
        break;
    case SHUTDOWN_RECV:
        unix_shutdown(_sock, SHUT_RD);
        break;
    default:
        unix_shutdown(_sock, SHUT_RDWR);
        break;
    }
}

void Socket::close() {
    if (_closed) return;
    unix_close(_sock);
    // The host may reuse the number at once; an operation on this object must not reach it.
    _sock = -1;
    _closed = true;
}

int Socket::bind(const IPAddress& ip) {
    if (!_is_usable(ip)) return -1;
    return unix_bind(_sock, as_sockaddr(ip.get_sockaddr()), ip.get_sockaddr_len());
}

int Socket::connect(const IPAddress& ip) {
    constexpr int32 no_limit = -1;
    if (!_is_usable(ip)) return -1;
    return unix_connect(_sock, as_sockaddr(ip.get_sockaddr()), ip.get_sockaddr_len(), no_limit);
}

// Linux takes an address without a family as a wish to disconnect, or to bind to any address, and
// reports success.
a_bool Socket::_is_usable(const IPAddress& ip) {
    if (ip.isValid() && ip.get_sockaddr()->ss_family != AF_UNSPEC) return true;
    errno = EINVAL;
    return false;
}

int Socket::listen(int backlog) {
    return unix_listen(_sock, backlog);
}

int Socket::accept(IPAddress& peer, Socket& newsock) {
    const SOCKET accepted = store_address(peer, [&](sockaddr_storage* sa, socklen_t* length) {
        return unix_accept(_sock, as_sockaddr(sa), length);
    });
    if (accepted == -1) return -1;
    newsock.init(accepted, _type, false);
    return 0;
}

int Socket::getsockname(IPAddress& ip) {
    return store_address(ip, [&](sockaddr_storage* sa, socklen_t* length) {
        return unix_getsockname(_sock, as_sockaddr(sa), length);
    });
}

int Socket::getpeername(IPAddress& ip) {
    return store_address(ip, [&](sockaddr_storage* sa, socklen_t* length) {
        return unix_getpeername(_sock, as_sockaddr(sa), length);
    });
}

int Socket::setsockopt(int level, int optname, const char* optval, socklen_t optlen) {
    return unix_setsockopt(_sock, level, optname, optval, optlen);
}

int Socket::getsockopt(int level, int optname, char* optval, socklen_t* optlen) {
    return unix_getsockopt(_sock, level, optname, optval, optlen);
}

template <class Value>
int Socket::_set_option(int level, int optname, const Value& value) {
    return setsockopt(level, optname, reinterpret_cast<const char*>(&value), sizeof value);
}

const char* Socket::get_class() {
    sockaddr_storage local = {};
    socklen_t length = sizeof local;
    if (unix_getsockname(_sock, as_sockaddr(&local), &length) == -1) return "";
    return TcpUtil::GetClass(&local, length);
}

int Socket::allow_broadcast() {
    return _set_option(SOL_SOCKET, SO_BROADCAST, int{1});
}

int Socket::add_membership(IPAddress& group, IPAddress& iface) {
    if (!_isv6 || !group.isIPv6()) {
        ip_mreq request = {};
        request.imr_multiaddr.s_addr = htonl(static_cast<uint32>(int{group}));
        request.imr_interface.s_addr = htonl(static_cast<uint32>(int{iface}));
        return _set_option(IPPROTO_IP, IP_ADD_MEMBERSHIP, request);
    }
    if (_set_option(IPPROTO_IPV6, IPV6_MULTICAST_LOOP, int{0}) == -1) return -1;
    ipv6_mreq request = {};
    request.ipv6mr_multiaddr = group.get_sockaddr_in6()->sin6_addr;
    // IPv6 names an interface by its index (RFC 3493, section 5.2), which is the scope here.
    request.ipv6mr_interface = iface.getScopeId();
    return _set_option(IPPROTO_IPV6, IPV6_JOIN_GROUP, request);
}

int Socket::set_blocking_state(a_bool blocking) {
    _blocking = blocking;
    // One call, where fcntl(2) takes two.
    int non_blocking = blocking ? 0 : 1;
    return unix_ioctl(_sock, FIONBIO, &non_blocking);
}

int Socket::set_Nagle_algorithm(a_bool flag) {
    // Kept: the option's sense is the opposite of this function's name.
    return _set_option(IPPROTO_TCP, TCP_NODELAY, int{flag});
}

UTErrorCode Socket::getLastError() {
    return UTErrorCode::from_errno(errno);
}

a_bool UdpSocket::reinit() {
    const a_bool ipv6 = _isv6;  // init() forgets it where it fails
    close();
    const a_bool opened = init(SOCK_UDP, ipv6);
    _isv6 = ipv6;
    if (opened && (_blocking || set_blocking_state(false) != -1)) return true;
    close();
    return false;
}
