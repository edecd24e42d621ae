#include "netlib/netcalls.h"

#include <sys/socket.h>
#include <unistd.h>

#include "netlib/hostanswer.h"
#include "netlib/unixsocket.h"
#include "utils/unix/utdescriptor.h"

namespace {

constexpr a_resolver_calls system_calls = {unix_socket,     getaddrinfo,     freeaddrinfo,
                                           gethostbyname_r, gethostbyaddr_r, gethostname};
const a_resolver_calls* current_calls = &system_calls;

}  // namespace

int NetInterface::_socket(int domain, int type, int protocol) {
    return current_calls->socket(domain, type, protocol);
}

int NetInterface::_connect(int s, const sockaddr* name, socklen_t namelen, int32 timeout_in_ms) {
    return unix_connect(s, name, namelen, timeout_in_ms);
}

int NetInterface::_recv(int s, char* buf, size_t len, int flags) {
    return static_cast<int>(unix_recv(s, buf, len, flags));
}

int NetInterface::_send(int s, const char* buf, size_t len, int flags) {
    return static_cast<int>(unix_send(s, buf, len, flags));
}

int NetInterface::_getaddrinfo(const char* node, const addrinfo* hints, addrinfo** found) {
    return current_calls->getaddrinfo(node, nullptr, hints, found);
}

void NetInterface::_freeaddrinfo(addrinfo* found) {
    current_calls->freeaddrinfo(found);
}

const hostent* NetInterface::_gethostbyname(const char* name, HostAnswer& answer) {
    return answer.fill([=](hostent* entry, char* buf, size_t buflen, hostent** found) {
        int ignored;
        return current_calls->gethostbyname_r(name, entry, buf, buflen, found, &ignored);
    });
}

const hostent* NetInterface::_gethostbyaddr(const void* addr, socklen_t len, int family,
                                            HostAnswer& answer) {
    return answer.fill([=](hostent* entry, char* buf, size_t buflen, hostent** found) {
        int ignored;
        return current_calls->gethostbyaddr_r(addr, len, family, entry, buf, buflen, found,
                                              &ignored);
    });
}

int NetInterface::_gethostname(char* name, size_t len) {
    return current_calls->gethostname(name, len);
}

void NetInterface::_use_calls(const a_resolver_calls* calls) {
    current_calls = calls != nullptr ? calls : &system_calls;
}

a_bool NetInterface::_do_load() {
    // A kernel without IPv6 refuses the socket; whether there is a route shows in connecting.
    _ipv6Supported = UTDescriptor(_socket(AF_INET6, SOCK_STREAM, IPPROTO_TCP)).is_open();
    return true;
}

void NetInterface::_do_unload() {
    _ipv6Supported = false;
}
