#ifndef QUOREL_NETLIB_UDPSOCKET_H
#define QUOREL_NETLIB_UDPSOCKET_H

#include "netlib/netsocket.h"

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

#endif
