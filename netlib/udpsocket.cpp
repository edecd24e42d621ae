#include "netlib/udpsocket.h"

a_bool UdpSocket::reinit() {
    const a_bool ipv6 = _isv6;
    close();
    const a_bool opened = init(SOCK_UDP, ipv6);
    _isv6 = ipv6;  // for the next attempt, should this one have failed
    if (opened && (_blocking || set_blocking_state(false) != -1)) return true;
    close();
    return false;
}
