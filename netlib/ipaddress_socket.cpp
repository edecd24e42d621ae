#include "netlib/ipaddress.h"
#include "netlib/netsocket.h"

// The length is the room that the socket may fill, so at first it is that of the whole storage.
IPAddress::IPAddress(Socket& socket)
    : _sa{}, _salen(sizeof(sockaddr_storage)), _valid(true), _isv6(false) {
    _valid = socket.getsockname(*this) == 0;
    _salen = _isv6 ? sizeof(sockaddr_storage) : sizeof(sockaddr_in);
}
