#ifndef QUOREL_TESTS_NETLIB_NETLIB_FIXTURE_H
#define QUOREL_TESTS_NETLIB_NETLIB_FIXTURE_H

/// A loaded TcpUtil whose view of the system does not depend on the machine: IPv6 is supported
/// unless a test says otherwise, and name lookups are answered here. Literals still go through the
/// C library's own conversion.

#include <cstring>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "netlib/netcalls.h"
#include "netlib/netutil.h"
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

/// The C library converts each literal; it lays out its results so that they can be chained.
inline int GetAddrInfo(const char* node, const char*, const addrinfo* hints, addrinfo** found) {
    std::vector<std::string> literals = {node};
    if ((hints->ai_flags & AI_NUMERICHOST) == 0) {
        fake_system.lookups.emplace_back(node);
        literals = fake_system.hosts[node];
    }
    addrinfo numeric = *hints;
    numeric.ai_flags |= AI_NUMERICHOST;
    int error = EAI_NONAME;
    for (const std::string& literal : literals) {
        error = getaddrinfo(literal.c_str(), nullptr, &numeric, found);
        if (error != 0) break;
        found = &(*found)->ai_next;
    }
    return error;
}

/// Answers in the room of the caller, which may be less than the C library needs.
inline int Answer(const std::string& official, const std::vector<std::string>& literals,
                  hostent* entry, char* buf, size_t buflen, hostent** found) {
    struct an_answer {
        char official[64], alias[8];
        char* aliases[3];
        char* pointers[5];
        in_addr addresses[4];
        char more[3000];
    };
    if (buflen < sizeof(an_answer)) return ERANGE;
    auto& room = *reinterpret_cast<an_answer*>(buf);
    memset(buf, 0, sizeof room);
    official.copy(room.official, sizeof room.official - 1);
    strcpy(room.alias, "alias");
    room.aliases[0] = room.official;
    room.aliases[1] = room.alias;
    size_t count = 0;
    for (const std::string& literal : literals) {
        in_addr* const address = &room.addresses[count];
        if (inet_pton(AF_INET, literal.c_str(), address) != 1) continue;
        room.pointers[count++] = reinterpret_cast<char*>(address);
    }
    *entry = {room.official, room.aliases, AF_INET, sizeof(in_addr), room.pointers};
    *found = entry;
    return 0;
}

inline int GetHostByName(const char* name, hostent* entry, char* buf, size_t buflen,
                         hostent** found, int*) {
    *found = nullptr;
    if (fake_system.hosts.count(name) == 0) return 0;
    const std::string official = name + std::string(".test");
    const int error = Answer(official, fake_system.hosts[name], entry, buf, buflen, found);
    if (error == 0) fake_system.lookups.emplace_back(name);
    return error;
}

inline int GetHostByAddr(const void* addr, socklen_t len, int, hostent* entry, char* buf,
                         size_t buflen, hostent** found, int*) {
    char text[INET_ADDRSTRLEN];
    EXPECT_EQ(4U, len);
    *found = nullptr;
    inet_ntop(AF_INET, addr, text, sizeof text);
    if (fake_system.names.count(text) == 0) return 0;
    return Answer(fake_system.names[text], {}, entry, buf, buflen, found);
}

inline int GetHostName(char* name, size_t len) {
    snprintf(name, len, "thishost");
    return 0;
}

inline constexpr a_resolver_calls calls = {Socket,        GetAddrInfo,   freeaddrinfo,
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
