#include "netlib/ipaddress.h"

#include <algorithm>
#include <cstring>

#include "netlib/netsocket.h"
#include "netlib/netutil.h"
#include "netlib/netutil_text.h"

namespace {

constexpr socklen_t storage_size = sizeof(sockaddr_storage);

/// A socket address as sameIPAddress compares it.
union a_comparable {
    sockaddr_storage sa;
    sockaddr_in sin;
    sockaddr_in6 sin6;
};

a_comparable comparable(const IPAddress& ip) {
    a_comparable result = {};
    std::memcpy(&result.sa, ip.get_sockaddr(), std::min(ip.get_sockaddr_len(), storage_size));
    // In the same place for both kinds; neither port nor flow tells one host from another.
    result.sin.sin_port = 0;
    if (ip.isIPv6()) result.sin6.sin6_flowinfo = 0;
    return result;
}

}  // namespace

IPAddress::IPAddress() : _sa{}, _salen(storage_size), _valid(false), _isv6(false) {}

IPAddress::IPAddress(uint32 addr) : _sa{}, _salen(sizeof(sockaddr_in)), _valid(true), _isv6(false) {
    _sin.sin_family = AF_INET;
    _sin.sin_addr.s_addr = htonl(addr);
}

IPAddress::IPAddress(const in6_addr& addr, uint32 scope_id)
    : _sa{}, _salen(sizeof(sockaddr_in6)), _valid(true), _isv6(true) {
    _sin6.sin6_family = AF_INET6;
    _sin6.sin6_addr = addr;
    _sin6.sin6_scope_id = scope_id;
}

IPAddress::IPAddress(const sockaddr_storage* sa, socklen_t len) : IPAddress() {
    reset(sa, len);
}

IPAddress::IPAddress(const char* text)
    : _sa{}, _salen(sizeof(sockaddr_in)), _valid(false), _isv6(false) {
    reset(text);
}

// The length is the room that the socket may fill, so at first it is that of the whole storage.
IPAddress::IPAddress(Socket& socket)
    : _sa{}, _salen(sizeof(sockaddr_storage)), _valid(true), _isv6(false) {
    _valid = socket.getsockname(*this) == 0;
    _salen = _isv6 ? sizeof(sockaddr_storage) : sizeof(sockaddr_in);
}

IPAddress::IPAddress(const IPAddress& other)
    : c_utils_link(other), _sa{}, _salen(other._salen), _valid(other._valid), _isv6(other._isv6) {
    std::memcpy(&_sa, &other._sa, std::min(_salen, storage_size));
}

IPAddress& IPAddress::operator=(const IPAddress& other) {
    if (this == &other) return *this;
    _sa = other._sa;
    _salen = other._salen;
    _valid = other._valid;
    _isv6 = other._isv6;
    return *this;
}

IPAddress& IPAddress::operator=(uint32 addr) {
    return *this = IPAddress(addr);
}

IPAddress::~IPAddress() = default;

IPAddress* IPAddress::clone() const {
    return new IPAddress(*this);
}

void IPAddress::reset(const sockaddr_storage* sa, socklen_t len) {
    sockaddr_storage given = {};  // a copy: `sa` may be our own
    _salen = std::min(len, storage_size);
    if (sa != nullptr) std::memcpy(&given, sa, _salen);
    _sa = given;
    _isv6 = _sa.ss_family == AF_INET6;
    _valid = _isv6 || _sa.ss_family == AF_INET;
}

a_bool IPAddress::reset(const char* text) {
    _valid = TcpUtil::Resolve(text, *this, TcpUtil::ADDR_BOTH);
    if (_sa.ss_family == AF_INET6) _isv6 = true;
    return _valid;
}

void IPAddress::setValid(a_bool v) {
    _valid = v;
    if (v) _isv6 = _sa.ss_family == AF_INET6;
}

void IPAddress::use_INADDR_ANY(a_bool ipv6) {
    if (ipv6) {
        reset("::");
    } else {
        *this = static_cast<uint32>(INADDR_ANY);
    }
}

// sockaddr_in and sockaddr_in6 keep the port in the same place.
void IPAddress::setPortNumber(uint16 port) {
    _sin.sin_port = htons(port);
}

uint16 IPAddress::getPortNumber() const {
    return _valid ? ntohs(_sin.sin_port) : uint16{0};
}

void IPAddress::setScopeId(uint32 scope_id) {
    if (_isv6) _sin6.sin6_scope_id = scope_id;
}

uint32 IPAddress::getScopeId() const {
    return _valid && _isv6 ? _sin6.sin6_scope_id : 0;
}

IPAddress::operator int() const {
    if (!_valid || _isv6) return -1;
    return static_cast<int>(ntohl(_sin.sin_addr.s_addr));
}

a_bool IPAddress::operator==(uint32 value) const {
    return !_isv6 && static_cast<uint32>(int(*this)) == value;
}

a_bool IPAddress::operator!=(uint32 value) const {
    return !(*this == value);
}

a_bool IPAddress::sameIPAddress(const IPAddress& other) const {
    if (!_valid || !other._valid) return false;
    if (_isv6 != other._isv6) {
        const IPAddress& v6 = _isv6 ? *this : other;
        const IPAddress& v4 = _isv6 ? other : *this;
        return v6.embedsIPv4() && v4.sameIPAddress(v6.getIPv4EmbeddedAddress());
    }
    a_comparable mine = comparable(*this);
    a_comparable theirs = comparable(other);
    // Without a scope it may be on any link.
    if (_isv6 && (mine.sin6.sin6_scope_id == 0 || theirs.sin6.sin6_scope_id == 0)) {
        mine.sin6.sin6_scope_id = theirs.sin6.sin6_scope_id = 0;
    }
    return std::memcmp(&mine, &theirs, std::min({_salen, other._salen, storage_size})) == 0;
}

// The unspecified addresses are compared as constants: it is the same answer as for the resolved
// texts, and it holds where IPv6 is not supported.
a_bool IPAddress::is_INADDR_ANY_v4() const {
    return sameIPAddress(IPAddress(static_cast<uint32>(INADDR_ANY)));
}

a_bool IPAddress::is_INADDR_ANY_v6() const {
    return sameIPAddress(IPAddress(in6addr_any));
}

a_bool IPAddress::is_INADDR_ANY() const {
    return is_INADDR_ANY_v4() || is_INADDR_ANY_v6();
}

a_bool IPAddress::isLoopback() const {
    if (_isv6) return IN6_IS_ADDR_LOOPBACK(&_sin6.sin6_addr);
    return *this == static_cast<uint32>(INADDR_LOOPBACK);
}

a_bool IPAddress::isPrivateNet() const {
    if (_isv6) {
        if (embedsIPv4()) return getIPv4EmbeddedAddress().isPrivateNet();
        // fc00::/7 (RFC 4193)
        return (_sin6.sin6_addr.s6_addr[0] & 0xFE) == 0xFC;
    }
    if (!_valid) return false;
    const uint32 addr = ntohl(_sin.sin_addr.s_addr);
    return (addr & 0xFF000000) == 0x0A000000 ||  // 10.0.0.0/8
           (addr & 0xFFF00000) == 0xAC100000 ||  // 172.16.0.0/12
           (addr & 0xFFFF0000) == 0xC0A80000;    // 192.168.0.0/16
}

a_bool IPAddress::embedsIPv4() const {
    const e_IPv6AddressType type = getIPv6AddressType();
    return type == addrIPv4Mapped || type == addrIPv4Compatible;
}

IPAddress IPAddress::getIPv4EmbeddedAddress() const {
    if (embedsIPv4()) return IPAddress(ntohl(_sin6.sin6_addr.s6_addr32[3]));
    IPAddress none(static_cast<uint32>(INADDR_ANY));
    none.setValid(false);
    return none;
}

a_bool IPAddress::toString(char* buf, size_t buflen, a_bool include_port, a_bool resolve_hostname,
                           a_bool include_scope) const {
    if (!_valid) return false;
    if (resolve_hostname && TcpUtil::LookupHostName(*this, buf, buflen)) {
        return !include_port || TcpUtil::AppendPort(buf, buflen, getPortNumber());
    }
    return TcpUtil::AddressToString(&_sa, _salen, buf, buflen, include_port, include_scope);
}
