#include "netlib/udpsocket.h"

a_bool UdpSocket::reinit() {
    close();
    if (!init(SOCK_UDP, _isv6)) return false;
    return _blocking || set_blocking_state(false) != -1;
}
