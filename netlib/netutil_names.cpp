#include <cstring>

#include <arpa/inet.h>

#include "netlib/hostanswer.h"
#include "netlib/netcalls.h"
#include "netlib/netutil.h"
#include "netlib/netutil_state.h"
#include "netlib/netutil_text.h"
#include "utils/utmem/utmem.h"

/// Addresses to host names.

namespace {

/// A null-terminated array of copied names, as FreeHostNames takes it.
class NameArray {
  public:
    NameArray() = default;
    ~NameArray() { TcpUtil::FreeHostNames(_names); }
    NameArray(const NameArray&) = delete;
    NameArray& operator=(const NameArray&) = delete;

    void Add(const char* name) {
        auto* const grown = static_cast<char**>(ut_realloc(_names, (_count + 2) * sizeof(char*)));
        if (grown == nullptr) return;
        _names = grown;
        _names[_count++] = ut_strdup(name);
        _names[_count] = nullptr;
    }
    void AddOnce(const char* name) {
        for (size_t i = 0; i < _count; ++i) {
            if (std::strcmp(_names[i], name) == 0) return;
        }
        Add(name);
    }
    void AddEntry(const hostent& entry) {
        AddOnce(entry.h_name);
        for (char** alias = entry.h_aliases; *alias != nullptr; ++alias) AddOnce(*alias);
    }
    /// Null when there are none; the caller frees.
    char** Release() {
        char** const names = _names;
        _names = nullptr;
        _count = 0;
        return names;
    }

  private:
    char** _names = nullptr;
    size_t _count = 0;
};

void AddNamesOf(const char* host, NameArray& names) {
    const CriticalSection lock(TcpUtil::ThreadCritSect);
    if (!lock.is_held()) return;
    HostAnswer answer;
    const hostent* const entry = NetInterface::_gethostbyname(host, answer);
    if (entry != nullptr) names.AddEntry(*entry);
}

}  // namespace

namespace TcpUtil {

a_bool LookupHostName(const IPAddress& ip, char* buf, size_t buflen) {
    if (!ip.isValid() || buf == nullptr || buflen == 0) return false;
    const CriticalSection lock(ThreadCritSect);
    if (!lock.is_held()) return false;
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
    NameArray found;
    found.Add(host);
    AddNamesOf(host, found);
    char** const array = found.Release();
    if (array == nullptr) return false;
    *names = array;
    return true;
}

void FreeHostNames(char** names) {
    if (names == nullptr) return;
    for (char** name = names; *name != nullptr; ++name) ut_free(*name);
    ut_free(names);
}

}  // namespace TcpUtil
