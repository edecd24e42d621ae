#ifndef QUOREL_NETLIB_NETUTIL_INTERNAL_H
#define QUOREL_NETLIB_NETUTIL_INTERNAL_H

/// What the files of TcpUtil share with each other and with their tests; callers of the network
/// layer include netlib/netutil.h.

#include <cerrno>
#include <cstddef>

#include <netdb.h>

#include "netlib/ipaddress.h"
#include "netlib/netinterface.h"
#include "netlib/netutil.h"
#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"
#include "utils/unix/utptmutex.h"

/// A critical section that exists as long as the object. Without memory there is none: p_mutex of
/// `cs` is null.
class a_critical_sect_mutex {
  public:
    a_critical_sect_mutex() { ut_safe_pthread_mutex_init(&cs, nullptr); }
    ~a_critical_sect_mutex() { ut_safe_pthread_mutex_destroy(&cs); }
    a_critical_sect_mutex(const a_critical_sect_mutex&) = delete;
    a_critical_sect_mutex& operator=(const a_critical_sect_mutex&) = delete;

    a_critical_sect cs;
};

/// Outside of Init() and Fini() the locks below do not exist.
using LockIfThere = CriticalSection;

/// Counts who needs a resource: loaded for the first, unloaded after the last. Any thread may call
/// init() and fini(); derived classes load and unload while _mutex is held.
class DLLLoadingMonitor {
  public:
    DLLLoadingMonitor() = default;
    DLLLoadingMonitor(const DLLLoadingMonitor&) = delete;
    DLLLoadingMonitor& operator=(const DLLLoadingMonitor&) = delete;
    virtual ~DLLLoadingMonitor();

    /// False when loading failed; then no fini() is due.
    virtual a_bool init();
    /// Does nothing when nothing is loaded.
    virtual void fini();

  protected:
    /// After an unload: forget what was loaded.
    virtual void _clear() {}
    virtual a_bool _do_load() = 0;
    virtual void _do_unload() = 0;

    void* _dll = nullptr;
    uint32 _count = 0;  // init() calls in force; guarded by _mutex
    a_critical_sect_mutex _mutex;
};

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

/// Room for one answer about a host, which grows to what the answer needs. The C library's own room
/// (gethostbyname(3)) is shared by the whole process: a lock of this library would not keep the
/// host's other code from it.
class HostAnswer {
  public:
    HostAnswer() = default;
    ~HostAnswer();
    HostAnswer(const HostAnswer&) = delete;
    HostAnswer& operator=(const HostAnswer&) = delete;

    /// Runs `ask`(&entry, buf, buflen, &found), which returns ERANGE for want of room, with more
    /// and more of it. Returns what it found, valid as long as this object; null for nothing.
    template <class Ask>
    const hostent* Fill(Ask ask) {
        hostent* found = nullptr;
        while (_Grow()) {
            if (ask(&_entry, _buf, _buflen, &found) != ERANGE) return found;
        }
        return nullptr;
    }

  private:
    /// False without memory, or beyond what any answer needs.
    a_bool _Grow();

    hostent _entry = {};
    char* _buf = nullptr;
    size_t _buflen = 0;
};

/// The way to the system's sockets and resolver.
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

namespace TcpUtil {

/// Loads what TcpUtil stands on: the locks, the interface list and NetInterface.
class TcpUtilSingleton : public DLLLoadingMonitor {
  public:
    /// Unloads what is still loaded, so that unloading the library leaves nothing behind (see
    /// UTLasting for when that is).
    ~TcpUtilSingleton() override;

  protected:
    void _clear() override;
    a_bool _do_load() override;
    void _do_unload() override;
};

/// One reading of the host's interfaces; owns its entries.
class a_ni_reading : public c_utils_link {
  public:
    a_ni_reading() = default;
    a_ni_reading(const a_ni_reading&) = delete;
    a_ni_reading& operator=(const a_ni_reading&) = delete;
    ~a_ni_reading() override;

    NetworkInterface_list list;
    unsigned long count = 0;
};

// Module state, in force between load and unload. No two of the locks are held at once.

extern a_critical_sect ThreadCritSect;     // one _gethostbyname or _gethostbyaddr at a time
extern a_critical_sect NICritSect;         // NIList
extern a_critical_sect SingletonCritSect;  // the count of pending Fini() calls

/// The readings handed out, the current one last. The former ones are kept, for someone may still
/// walk them; one is added only when the interfaces have changed. Guarded by NICritSect.
extern c_utils_list<a_ni_reading>& NIList;

/// Resolves as Resolve and ResolveAll do; appends all addresses, or only the first. The caller owns
/// the entries. A failure, want of memory among them, leaves the list as it was.
a_bool _DoResolve(const char* text, IPAddress_list& list, eAddressType type, a_bool all);

/// Appends to the text in `buf` of `buflen` bytes. False when it does not fit: then as much as fits
/// is there.
a_bool AppendText(char* buf, size_t buflen, const char* text);
/// Appends ":" and the port in decimal.
a_bool AppendPort(char* buf, size_t buflen, uint16 port);

/// Whether the first 4096 bytes of the file `path` contain `domain`, in any case of letters and
/// with an optional "." after it, before a blank, a line end or the end of what was read.
a_bool _ConfigNamesDomain(const char* path, const char* domain);

}  // namespace TcpUtil

#endif
