#ifndef QUOREL_TESTS_NETLIB_NETLIB_FIXTURE_H
#define QUOREL_TESTS_NETLIB_NETLIB_FIXTURE_H

/// A loaded TcpUtil whose view of the system does not depend on the machine: IPv6 is supported
/// unless a test says otherwise, and name lookups are answered here. Literals still go through the
/// C library's own conversion.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "netlib/netutil.h"
#include "netlib/netutil_internal.h"
#include "netlib/unixsocket.h"

struct a_fake_system {
    bool ipv6 = true;
    /// What the fake resolver knows: literals by host name, in the order of its answer.
    std::map<std::string, std::vector<std::string>> hosts;
    /// What gethostbyaddr knows, by IPv4 literal.
    std::map<std::string, std::string> names;
    int probes = 0;                    // for IPv6
    std::vector<std::string> lookups;  // what reached the resolver, except literals
};
inline a_fake_system fake_system;

namespace fake {

inline int Socket(int domain, int type, int protocol) {
    if (domain != AF_INET6) return unix_socket(domain, type, protocol);
    ++fake_system.probes;
    return fake_system.ipv6 ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1;
}

inline addrinfo* NewResult(const std::string& literal) {
    auto* const result = new addrinfo();
    auto* const storage = new sockaddr_storage();
    auto* const sin = reinterpret_cast<sockaddr_in*>(storage);
    auto* const sin6 = reinterpret_cast<sockaddr_in6*>(storage);
    const bool v6 = literal.find(':') != std::string::npos;
    storage->ss_family = v6 ? AF_INET6 : AF_INET;
    inet_pton(storage->ss_family, literal.c_str(),
              v6 ? static_cast<void*>(&sin6->sin6_addr) : static_cast<void*>(&sin->sin_addr));
    result->ai_family = storage->ss_family;
    result->ai_addrlen = v6 ? sizeof *sin6 : sizeof *sin;
    result->ai_addr = reinterpret_cast<sockaddr*>(storage);
    return result;
}

inline void FreeAddrInfo(addrinfo* at) {
    while (at != nullptr) {
        addrinfo* const next = at->ai_next;
        delete reinterpret_cast<sockaddr_storage*>(at->ai_addr);
        delete at;
        at = next;
    }
}

inline int GetAddrInfo(const char* node, const char*, const addrinfo* hints, addrinfo** found) {
    std::vector<std::string> literals;
    if ((hints->ai_flags & AI_NUMERICHOST) != 0) {
        addrinfo* real = nullptr;
        if (const int error = getaddrinfo(node, nullptr, hints, &real); error != 0) return error;
        char text[NI_MAXHOST];
        getnameinfo(real->ai_addr, real->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
        freeaddrinfo(real);
        literals.emplace_back(text);
    } else {
        fake_system.lookups.emplace_back(node);
        literals = fake_system.hosts[node];
        if (literals.empty()) return EAI_NONAME;
    }
    addrinfo** tail = found;
    for (const std::string& literal : literals) {
        *tail = NewResult(literal);
        tail = &(*tail)->ai_next;
    }
    return 0;
}

/// The room of an answer, as an_answer lays it out; the C library may need more than it is offered.
struct an_answer {
    char official[64], alias[8];
    char* aliases[3];
    char* pointers[5];
    in_addr addresses[4];
    char more[3000];
};

/// Answers with the IPv4 literals alone, in the room of the caller.
inline int Answer(const std::string& official, const char* alias,
                  const std::vector<std::string>& literals, hostent* entry, char* buf,
                  hostent** found) {
    auto& room = *reinterpret_cast<an_answer*>(buf);
    snprintf(room.official, sizeof room.official, "%s", official.c_str());
    snprintf(room.alias, sizeof room.alias, "%s", alias);
    room.aliases[0] = *alias != '\0' ? room.official : nullptr;
    room.aliases[1] = room.alias;
    room.aliases[2] = nullptr;
    char** next = room.pointers;
    in_addr* address = room.addresses;
    for (const std::string& literal : literals) {
        if (inet_pton(AF_INET, literal.c_str(), address) != 1) continue;
        *next++ = reinterpret_cast<char*>(address++);
    }
    *next = nullptr;
    *entry = {room.official, room.aliases, AF_INET, sizeof(in_addr), room.pointers};
    *found = entry;
    return 0;
}

inline int GetHostByName(const char* name, hostent* entry, char* buf, size_t buflen,
                         hostent** found, int*) {
    *found = nullptr;
    if (buflen < sizeof(an_answer)) return ERANGE;
    fake_system.lookups.emplace_back(name);
    if (fake_system.hosts.count(name) == 0) return 0;
    return Answer(name + std::string(".test"), "alias", fake_system.hosts[name], entry, buf, found);
}

inline int GetHostByAddr(const void* addr, socklen_t len, int family, hostent* entry, char* buf,
                         size_t buflen, hostent** found, int*) {
    char text[INET_ADDRSTRLEN];
    EXPECT_EQ(4U, len);
    *found = nullptr;
    if (family != AF_INET || inet_ntop(AF_INET, addr, text, sizeof text) == nullptr) return 0;
    if (buflen < sizeof(an_answer)) return ERANGE;
    if (fake_system.names.count(text) == 0) return 0;
    return Answer(fake_system.names[text], "", {}, entry, buf, found);
}

inline int GetHostName(char* name, size_t len) {
    snprintf(name, len, "thishost");
    return 0;
}

inline constexpr a_resolver_calls calls = {Socket,        GetAddrInfo,   FreeAddrInfo,
                                           GetHostByName, GetHostByAddr, GetHostName};

}  // namespace fake

class NetlibTest : public testing::Test {
  protected:
    explicit NetlibTest(bool ipv6 = true) {
        fake_system = {};
        fake_system.ipv6 = ipv6;
        NetInterface::_use_calls(&fake::calls);
        EXPECT_TRUE(TcpUtil::Init());
    }
    ~NetlibTest() override {
        TcpUtil::Fini();
        NetInterface::_use_calls(nullptr);
    }
};

/// The same on a host without IPv6.
class NetlibWithoutIPv6 : public NetlibTest {
  protected:
    NetlibWithoutIPv6() : NetlibTest(false) {}
};

/// The words of a text.
inline std::vector<std::string> Words(const char* text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// The address with its port as text; "invalid" for one that is not valid.
inline std::string Text(const IPAddress& ip) {
    char text[80] = "invalid";
    ip.toString(text, sizeof text, true, false, true);
    return text;
}

#endif
