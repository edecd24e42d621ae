#include <cstring>

#include <arpa/inet.h>

#include "netlib/hostanswer.h"
#include "netlib/netcalls.h"
#include "netlib/netutil.h"
#include "netlib/netutil_state.h"
#include "netlib/netutil_text.h"
#include "utils/utmem/uttextarray.h"

/// Addresses to host names.

namespace {

/// False without memory.
a_bool add_once(UTTextArray& names, const char* name) {
    for (const char* known : names) {
        if (std::strcmp(known, name) == 0) return true;
    }
    return names.add(name);
}

/// A host that the resolver does not know has no more names. False without memory.
a_bool add_names_of(const char* host, UTTextArray& names) {
    const UTLock lock(TcpUtil::ThreadCritSect.p_mutex);
    if (!lock.is_held()) return true;
    HostAnswer answer;
    const hostent* const entry = NetInterface::_gethostbyname(host, answer);
    if (entry == nullptr) return answer.has_room();
    a_bool added = add_once(names, entry->h_name);
    for (char** alias = entry->h_aliases; added && *alias != nullptr; ++alias)
        added = add_once(names, *alias);
    return added;
}

}  // namespace

namespace TcpUtil {

a_bool LookupHostName(const IPAddress& ip, char* buf, size_t buflen) {
    if (!ip.isValid() || buf == nullptr || buflen == 0) return false;
    const UTLock lock(ThreadCritSect.p_mutex);
    if (!lock.is_held()) return false;
    // For IPv6 this is no address at all, and too short for its family: nothing is found.
    const uint32 address = htonl(static_cast<uint32>(int(ip)));
    const int family = ip.isIPv6() ? AF_INET6 : AF_INET;
    HostAnswer answer;
    const hostent* const entry =
        NetInterface::_gethostbyaddr(&address, sizeof address, family, answer);
    if (entry == nullptr) return false;
    *buf = '\0';
    return AppendText(buf, buflen, entry->h_name);
}

a_bool LookupHostNames(char*** names) {
    char host[256];
    if (names == nullptr || NetInterface::_gethostname(host, sizeof host) != 0) return false;
    host[sizeof host - 1] = '\0';  // gethostname may leave a cut name open
    UTTextArray found;
    if (!found.add(host) || !add_names_of(host, found)) return false;
    *names = found.release();
    return true;
}

void FreeHostNames(char** names) {
    ut_free_texts(names);
}

}  // namespace TcpUtil
