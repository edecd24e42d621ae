#include <bit>
#include <cstring>

#include <netinet/in.h>

#include "netlib/netutil.h"

/// Address arithmetic: the classful networks of RFC 791, and how near two addresses are.

namespace {

struct an_address_class {
    uint32 leading_mask;
    uint32 leading_bits;
    const char* name;
    uint32 net_mask;
};

constexpr an_address_class address_classes[] = {
    {0x80000000, 0x00000000, "A", 0xFF000000},
    {0xC0000000, 0x80000000, "B", 0xFFFF0000},
    {0xE0000000, 0xC0000000, "C", 0xFFFFFF00},
    {0x00000000, 0x00000000, "", 0xFFFFFFFF},  // any other
};

constexpr const an_address_class& no_class = address_classes[3];

const an_address_class& class_of(const sockaddr_storage* sa, socklen_t salen) {
    if (sa == nullptr || salen < sizeof(sockaddr_in) || sa->ss_family != AF_INET) return no_class;
    sockaddr_in address;
    std::memcpy(&address, sa, sizeof address);
    const uint32 value = ntohl(address.sin_addr.s_addr);
    const an_address_class* row = address_classes;
    while ((value & row->leading_mask) != row->leading_bits) ++row;
    return *row;
}

uint32 common_leading_bits(const void* a, const void* b, size_t bytes) {
    const auto* const left = static_cast<const a_byte*>(a);
    const auto* const right = static_cast<const a_byte*>(b);
    for (size_t i = 0; i < bytes; ++i) {
        const auto differing = static_cast<a_byte>(left[i] ^ right[i]);
        if (differing == 0) continue;
        return static_cast<uint32>(i * 8) + static_cast<uint32>(std::countl_zero(differing));
    }
    return static_cast<uint32>(bytes * 8);
}

}  // namespace

namespace TcpUtil {

IPAddress GetLoopbackIPAddress(a_bool ipv6) {
    if (ipv6 && IsIPv6Supported()) return IPAddress(in6addr_loopback);
    return IPAddress(static_cast<uint32>(INADDR_LOOPBACK));
}

const char* GetClass(const sockaddr_storage* sa, socklen_t salen) {
    return class_of(sa, salen).name;
}

IPAddress GetSubnetMaskBasedOnClass(const IPAddress& ip) {
    return IPAddress(class_of(ip.get_sockaddr(), ip.get_sockaddr_len()).net_mask);
}

IPAddress GetBroadcastAddressBasedOnClass(const IPAddress& ip) {
    constexpr in6_addr all_nodes = {{{0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}}};
    if (ip.isIPv6()) return IPAddress(all_nodes, ip.getScopeId());
    if (ip == static_cast<uint32>(INADDR_ANY)) {
        return IPAddress(static_cast<uint32>(INADDR_BROADCAST));
    }
    const uint32 mask = class_of(ip.get_sockaddr(), ip.get_sockaddr_len()).net_mask;
    return IPAddress((static_cast<uint32>(int(ip)) & mask) | ~mask);
}

uint32 CalcNetworkMatchScore(const IPAddress& a, const IPAddress& b) {
    if (!a.isValid() || !b.isValid() || a.isIPv6() != b.isIPv6()) return 0;
    if (a.isIPv6()) {
        return common_leading_bits(&a.get_sockaddr_in6()->sin6_addr,
                                   &b.get_sockaddr_in6()->sin6_addr, sizeof(in6_addr));
    }
    const auto differing = static_cast<uint32>(int(a)) ^ static_cast<uint32>(int(b));
    return static_cast<uint32>(std::countl_zero(differing));
}

}  // namespace TcpUtil
