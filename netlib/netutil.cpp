#include "netlib/netutil.h"

#include <sys/socket.h>
#include <unistd.h>

#include "netlib/netutil_internal.h"
#include "netlib/unixsocket.h"
#include "utils/unix/utlasting.h"
#include "utils/utmem/utmem.h"

DLLLoadingMonitor::~DLLLoadingMonitor() = default;

a_bool DLLLoadingMonitor::init() {
    const LockIfThere lock(_mutex.cs);
    if (!lock.is_held()) return false;
    if (_count == 0 && !_do_load()) return false;
    ++_count;
    return true;
}

void DLLLoadingMonitor::fini() {
    const LockIfThere lock(_mutex.cs);
    if (!lock.is_held() || _count == 0) return;
    if (--_count > 0) return;
    _do_unload();
    _clear();
    _dll = nullptr;
}

namespace {

constexpr a_resolver_calls system_calls = {unix_socket,     getaddrinfo,     freeaddrinfo,
                                           gethostbyname_r, gethostbyaddr_r, gethostname};
const a_resolver_calls* current_calls = &system_calls;

}  // namespace

HostAnswer::~HostAnswer() {
    ut_free(_buf);
}

a_bool HostAnswer::_Grow() {
    constexpr size_t first_buflen = 1024;
    constexpr size_t max_buflen = 1024 * first_buflen;
    if (_buflen >= max_buflen) return false;
    ut_free(_buf);
    _buflen = _buflen == 0 ? first_buflen : 4 * _buflen;
    _buf = static_cast<char*>(ut_malloc(_buflen));
    return _buf != nullptr;
}

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
    return answer.Fill([=](hostent* entry, char* buf, size_t buflen, hostent** found) {
        int ignored;
        return current_calls->gethostbyname_r(name, entry, buf, buflen, found, &ignored);
    });
}

const hostent* NetInterface::_gethostbyaddr(const void* addr, socklen_t len, int family,
                                            HostAnswer& answer) {
    return answer.Fill([=](hostent* entry, char* buf, size_t buflen, hostent** found) {
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
    const int probe = _socket(AF_INET6, SOCK_STREAM, IPPROTO_TCP);
    _ipv6Supported = probe != -1;
    if (_ipv6Supported) unix_close(probe);
    return true;
}

void NetInterface::_do_unload() {
    _ipv6Supported = false;
}

namespace TcpUtil {

a_critical_sect ThreadCritSect;
a_critical_sect NICritSect;
a_critical_sect SingletonCritSect;

namespace {

a_critical_sect* const all_locks[] = {&ThreadCritSect, &NICritSect, &SingletonCritSect};
uint32 pending_fini = 0;  // guarded by SingletonCritSect

// Before the singleton, whose destructor needs them.
UTLasting<c_utils_list<a_ni_reading>> interface_list;
UTLasting<NetInterface> net_interface;
UTLasting<TcpUtilSingleton> singleton;

void DestroyLocks() {
    for (a_critical_sect* lock : all_locks) ut_safe_pthread_mutex_destroy(lock);
}

a_bool CreateLocks() {
    for (a_critical_sect* lock : all_locks) {
        if (ut_safe_pthread_mutex_init(lock, nullptr) == 0) continue;
        DestroyLocks();
        return false;
    }
    return true;
}

a_bool TakePendingFini() {
    const LockIfThere lock(SingletonCritSect);
    if (!lock.is_held() || pending_fini == 0) return false;
    --pending_fini;
    return true;
}

}  // namespace

c_utils_list<a_ni_reading>& NIList = *interface_list;

TcpUtilSingleton::~TcpUtilSingleton() {
    if (_count == 0) return;
    _count = 0;
    TcpUtilSingleton::_do_unload();
    TcpUtilSingleton::_clear();
}

a_bool TcpUtilSingleton::_do_load() {
    if (!CreateLocks()) return false;
    if (net_interface->init()) return true;
    DestroyLocks();
    return false;
}

void TcpUtilSingleton::_do_unload() {
    NIList.delete_all();
    net_interface->fini();
    DestroyLocks();
}

void TcpUtilSingleton::_clear() {
    pending_fini = 0;
}

a_bool Init() {
    if (!singleton->init()) return false;
    const LockIfThere lock(SingletonCritSect);
    ++pending_fini;
    return true;
}

// The lock goes with the last fini(), so it is not held over it.
void Fini() {
    if (TakePendingFini()) singleton->fini();
}

a_bool IsIPv6Supported() {
    return net_interface->isIPv6Supported();
}

}  // namespace TcpUtil
