#include <cstdio>
#include <cstring>

#include <net/if.h>
#include <sys/ioctl.h>

#include "netlib/netcalls.h"
#include "netlib/netinterface.h"
#include "netlib/netutil.h"
#include "netlib/unixsocket.h"
#include "utils/unix/utdescriptor.h"

/// What the kernel says about one interface through the calls of netdevice(7).

/// Asks about one interface, over a socket of its own.
class InterfaceQuery {
  public:
    InterfaceQuery(int domain, const char* name)
        : _name(name), _domain(domain), _sock(NetInterface::_socket(domain, SOCK_DGRAM, 0)) {}

    a_bool ask_flags(int& flags) {
        if (!ask(SIOCGIFFLAGS)) return false;
        // The field is signed, and its top bit is a flag.
        flags = static_cast<unsigned short>(_answer.request.ifr_flags);
        return true;
    }
    a_bool ask_address(unsigned long request, IPAddress& ip) {
        if (!ask(request)) return false;
        sockaddr_storage address;
        std::memcpy(&address, &_answer.request.ifr_addr, sizeof address);
        // Some kernels leave the family of a mask open.
        if (address.ss_family == 0) address.ss_family = static_cast<sa_family_t>(_domain);
        const a_bool ipv6 = address.ss_family == AF_INET6;
        ip.reset(&address, ipv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
        return true;
    }
    a_bool is_open() const { return _sock.is_open(); }

  private:
    a_bool ask(unsigned long request) {
        if (!is_open()) return false;
        std::memset(&_answer, 0, sizeof _answer);
        std::snprintf(_answer.request.ifr_name, sizeof _answer.request.ifr_name, "%s", _name);
        return unix_ioctl(_sock.get(), request, &_answer) == 0;
    }

    const char* const _name;
    const int _domain;
    const UTDescriptor _sock;
    // An answer may be longer than an ifreq has room for.
    struct {
        ifreq request;
        char room[sizeof(sockaddr_storage)];
    } _answer;
};

a_bool NetworkInterface::_getFlags(int domain) {
    if (_flags != 0) return true;
    return InterfaceQuery(domain, _name).ask_flags(_flags);
}

a_bool NetworkInterface::_getInterfaceInfo(int domain) {
    if (!_getFlags(domain)) return false;
    InterfaceQuery query(domain, _name);
    if (!query.is_open()) return false;
    _ifIndex = if_nametoindex(_name);
    if (_addr.isValid()) return true;
    return domain == AF_INET6 ? _takeIPv6(query) : _takeIPv4(query);
}

a_bool NetworkInterface::_takeIPv4(InterfaceQuery& query) {
    if (!query.ask_address(SIOCGIFADDR, _addr)) return false;
    query.ask_address(SIOCGIFNETMASK, _mask);
    if (!hasBroadcast() || !query.ask_address(SIOCGIFBRDADDR, _broadcast)) _setBroadcastFromMask();
    _supports_ipv4 = true;
    _supports_ipv6 = false;
    return true;
}

a_bool NetworkInterface::_takeIPv6(InterfaceQuery& query) {
    // The kernel need not answer this for IPv6; the interface then stays without an address.
    if (!query.ask_address(SIOCGIFADDR, _addr)) return true;
    _addr.setScopeId(_ifIndex);
    _mask = IPAddress();
    _broadcast = TcpUtil::GetBroadcastAddressBasedOnClass(_addr);
    _supports_ipv4 = false;
    _supports_ipv6 = true;
    return true;
}
