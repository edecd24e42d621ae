#include "netlib/netutil_text.h"

#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <netdb.h>

#include "netlib/netutil.h"
#include "utils/etc/utstream.h"
#include "utils/utmem/utmem.h"

/// Addresses to text.

namespace {

/// A socket address, seen by its family.
union a_socket_address {
    sockaddr_storage sa;
    sockaddr_in sin;
    sockaddr_in6 sin6;
};

/// The family says how much there is: the length beside an address may be what a system call has
/// left there, or nobody has set.
a_socket_address copy_of(const sockaddr_storage* sa) {
    a_socket_address copy = {};
    std::memcpy(&copy, sa, sa->ss_family == AF_INET6 ? sizeof copy.sin6 : sizeof copy.sin);
    return copy;
}

a_bool copy_text(char* buf, size_t buflen, const char* text) {
    *buf = '\0';
    return TcpUtil::AppendText(buf, buflen, text);
}

/// For families that inet_ntop does not know.
a_bool other_numeric_text(const sockaddr_storage* sa, socklen_t salen,
                          const a_socket_address& address, char* buf, size_t buflen) {
    auto* const host = static_cast<char*>(ut_calloc(buflen + 1));
    if (host == nullptr) return false;
    const auto* const generic = reinterpret_cast<const sockaddr*>(sa);
    const auto hostlen = static_cast<socklen_t>(buflen);  // no longer than what fits afterwards
    const int failed = getnameinfo(generic, salen, host, hostlen, nullptr, 0, NI_NUMERICHOST);
    const a_bool fits = copy_text(buf, buflen, failed ? inet_ntoa(address.sin.sin_addr) : host);
    ut_free(host);
    return fits;
}

a_bool numeric_text(const sockaddr_storage* sa, socklen_t salen, const a_socket_address& address,
                    char* buf, size_t buflen) {
    const int family = address.sa.ss_family;
    const void* bytes = &address.sin.sin_addr;
    if (family == AF_INET6) bytes = &address.sin6.sin6_addr;
    char text[60] = {};
    if (inet_ntop(family, bytes, text, sizeof text) != nullptr) return copy_text(buf, buflen, text);
    return other_numeric_text(sa, salen, address, buf, buflen);
}

a_bool put_parenthesis_before(char* buf, size_t buflen) {
    const size_t size = std::strlen(buf) + 1;
    if (size >= buflen) return false;
    std::memmove(buf + 1, buf, size);
    *buf = '(';
    return true;
}

a_bool finish_scope(const a_socket_address& address, char* buf, size_t buflen,
                    a_bool include_scope) {
    constexpr uint32 max_scope = 999;
    char* const percent = std::strchr(buf, '%');
    if (!include_scope) {
        if (percent != nullptr) *percent = '\0';
        return true;
    }
    const uint32 scope = address.sa.ss_family == AF_INET6 ? address.sin6.sin6_scope_id : 0;
    if (percent != nullptr || scope == 0 || scope > max_scope) return true;
    char suffix[8];
    std::snprintf(suffix, sizeof suffix, "%%%u", scope);
    return TcpUtil::AppendText(buf, buflen, suffix);
}

}  // namespace

namespace TcpUtil {

a_bool AppendText(char* buf, size_t buflen, const char* text) {
    const size_t used = std::strlen(buf);
    const int length = std::snprintf(buf + used, buflen - used, "%s", text);
    return length >= 0 && static_cast<size_t>(length) < buflen - used;
}

a_bool AppendPort(char* buf, size_t buflen, uint16 port) {
    char text[8];
    std::snprintf(text, sizeof text, ":%u", port);
    return AppendText(buf, buflen, text);
}

a_bool AddressToString(const sockaddr_storage* sa, socklen_t salen, char* buf, size_t buflen,
                       a_bool include_port, a_bool include_scope) {
    if (sa == nullptr || buf == nullptr || buflen == 0) return false;
    const a_socket_address address = copy_of(sa);
    if (!numeric_text(sa, salen, address, buf, buflen)) return false;
    const a_bool ipv6 = IsIPv6Address(buf, false);
    if (ipv6) {
        if (include_port && !put_parenthesis_before(buf, buflen)) return false;
        if (!finish_scope(address, buf, buflen, include_scope)) return false;
    }
    if (!include_port) return true;
    if (ipv6 && !AppendText(buf, buflen, ")")) return false;
    return AppendPort(buf, buflen, ntohs(address.sin.sin_port));
}

a_bool AddressToString(const sockaddr_in* sa, char* buf, size_t buflen, a_bool include_port) {
    if (sa == nullptr) return false;
    a_socket_address address = {};
    address.sin = *sa;
    return AddressToString(&address.sa, sizeof *sa, buf, buflen, include_port, false);
}

a_bool AddressToString(const char* addr, uint16 port, char* buf, size_t buflen) {
    IPAddress ip(addr);
    ip.setPortNumber(port);
    return ip.toString(buf, buflen, true, false, true);
}

a_bool AddressToString(const char* addr, char* buf, size_t buflen) {
    return IPAddress(addr).toString(buf, buflen, false, false, true);
}

a_bool ListenerAddrToUTOStream(const IPAddress& ip, UTOStream& out) {
    char text[80];
    if (!ip.toString(text, sizeof text, true, false, true)) return false;
    return out.put(text) == std::strlen(text);
}

}  // namespace TcpUtil
