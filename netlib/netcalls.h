#ifndef QUOREL_NETLIB_NETCALLS_H
#define QUOREL_NETLIB_NETCALLS_H

#include <netdb.h>

#include "netlib/dllloadingmonitor.h"
#include "utils/etc/uttypes.h"

class HostAnswer;

/// The system calls behind name resolution, each with the contract of the C library's.
struct a_resolver_calls {
    int (*socket)(int domain, int type, int protocol);
    int (*getaddrinfo)(const char* node, const char* service, const addrinfo* hints,
                       addrinfo** found);
    void (*freeaddrinfo)(addrinfo* found);
    int (*gethostbyname_r)(const char* name, hostent* entry, char* buf, size_t buflen,
                           hostent** found, int* error);
    int (*gethostbyaddr_r)(const void* addr, socklen_t len, int family, hostent* entry, char* buf,
                           size_t buflen, hostent** found, int* error);
    int (*gethostname)(char* name, size_t len);
};

/// The way to the system's sockets and resolver. (The host's own interfaces are NetworkInterface,
/// netlib/netinterface.h.)
class NetInterface : public DLLLoadingMonitor {
  public:
    a_bool isIPv6Supported() const { return _ipv6Supported; }

    // Pass-through operations. The first four are those of netlib/unixsocket.h.
    static int _socket(int domain, int type, int protocol);
    static int _connect(int s, const sockaddr* name, socklen_t namelen, int32 timeout_in_ms);
    static int _recv(int s, char* buf, size_t len, int flags);
    static int _send(int s, const char* buf, size_t len, int flags);
    static int _getaddrinfo(const char* node, const addrinfo* hints, addrinfo** found);
    static void _freeaddrinfo(addrinfo* found);
    /// Both fill `answer` and return its entry, null for a host that has none.
    static const hostent* _gethostbyname(const char* name, HostAnswer& answer);
    static const hostent* _gethostbyaddr(const void* addr, socklen_t len, int family,
                                         HostAnswer& answer);
    static int _gethostname(char* name, size_t len);

    /// For tests: resolve through `calls` from now on; null puts the system's calls back. Not
    /// copied, and no other thread may be resolving.
    static void _use_calls(const a_resolver_calls* calls);

  protected:
    a_bool _do_load() override;
    void _do_unload() override;

  private:
    a_bool _ipv6Supported = false;  // written by the first init() and the last fini()
};

#endif
