#include "netlib/ipaddress.h"

/// The classification of IPv6 addresses by their leading bits (RFC 3513 section 2.4, which still
/// knew site-local addresses and had not assigned fc00::/7).

namespace {

/// Addresses whose first bits, those set in `mask`, are those of `prefix`.
struct a_prefix_type {
    uint16 mask;
    uint16 prefix;
    e_IPv6AddressType type;
};

/// The first 16 bits decide; what no row takes is addrReserved.
/// Kept: fc00::/7, the unique local addresses of RFC 4193, counts as unassigned.
constexpr a_prefix_type prefix_types[] = {
    {0xFF00, 0x0100, addrUnassigned},       {0xFE00, 0x0600, addrUnassigned},
    {0xF800, 0x0800, addrUnassigned},       {0xF000, 0x1000, addrUnassigned},
    {0xE000, 0x2000, addrGlobalUnicast},    {0xE000, 0x4000, addrUnassigned},
    {0xE000, 0x6000, addrUnassigned},       {0xE000, 0x8000, addrUnassigned},
    {0xE000, 0xA000, addrUnassigned},       {0xE000, 0xC000, addrUnassigned},
    {0xF000, 0xE000, addrUnassigned},       {0xF800, 0xF000, addrUnassigned},
    {0xFC00, 0xF800, addrUnassigned},       {0xFE00, 0xFC00, addrUnassigned},
    {0xFF80, 0xFE00, addrUnassigned},       {0xFFC0, 0xFE80, addrLinkLocalUnicast},
    {0xFFC0, 0xFEC0, addrSiteLocalUnicast}, {0xFF00, 0xFF00, addrMulticast},
};

a_bool all_zero(const a_byte* begin, const a_byte* end) {
    for (; begin != end; ++begin) {
        if (*begin != 0) return false;
    }
    return true;
}

}  // namespace

e_IPv6AddressType IPAddress::getIPv6AddressType() const {
    if (!_isv6 || !_valid) return addrUnknown;
    const a_byte* const bytes = _sin6.sin6_addr.s6_addr;
    if (all_zero(bytes, bytes + 10) && !is_INADDR_ANY_v6()) {
        if (bytes[10] == 0xFF && bytes[11] == 0xFF) return addrIPv4Mapped;
        // Kept: every ::w.x.y.z is IPv4-compatible, the loopback address ::1 included.
        if (bytes[10] == 0 && bytes[11] == 0) return addrIPv4Compatible;
    }
    const unsigned int first = bytes[0] * 256U + bytes[1];
    for (const a_prefix_type& row : prefix_types) {
        if ((first & row.mask) == row.prefix) return row.type;
    }
    return addrReserved;
}
