#include "netlib/netinterface.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <net/if.h>

#include "netlib/netutil.h"
#include "netlib/unix_nilist.h"

namespace {

constexpr size_t mac_bytes = 6;

a_bool address_text(const IPAddress& ip, char* buf, size_t buflen) {
    return ip.toString(buf, buflen, false, false, true);
}

a_bool same_bytes(const IPAddress& a, const IPAddress& b) {
    return a.isValid() == b.isValid() && a.get_sockaddr_len() == b.get_sockaddr_len() &&
           std::memcmp(a.get_sockaddr(), b.get_sockaddr(), sizeof(sockaddr_storage)) == 0;
}

/// Writes a hardware address as pairs of hex digits with `sep` between them.
a_bool hex_text(const a_byte* bytes, a_bool last_first, const char* sep, char* buf, size_t len) {
    if (buf == nullptr) return false;
    size_t used = 0;
    for (size_t i = 0; i < mac_bytes; ++i) {
        const a_byte byte = bytes[last_first ? mac_bytes - 1 - i : i];
        const char* const before = i == 0 || sep == nullptr ? "" : sep;
        const int written = std::snprintf(buf + used, len - used, "%s%02x", before, byte);
        if (written < 0 || static_cast<size_t>(written) >= len - used) return false;
        used += static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

NetworkInterface::~NetworkInterface() = default;

NetworkInterface* NetworkInterface::clone() const {
    return new NetworkInterface(*this);
}

void NetworkInterface::cloneTo(NetworkInterface& other) const {
    other = *this;
}

a_bool NetworkInterface::getIPAddress(char* buf, size_t buflen) const {
    return address_text(_addr, buf, buflen);
}

a_bool NetworkInterface::getNetMask(char* buf, size_t buflen) const {
    return address_text(_mask, buf, buflen);
}

a_bool NetworkInterface::getBroadcastAddress(char* buf, size_t buflen) const {
    return address_text(_broadcast, buf, buflen);
}

void NetworkInterface::setIPAddress(const IPAddress& ip) {
    _addr = ip;
    _supports_ipv4 = true;
    _supports_ipv6 = ip.isIPv6();
    _broadcast = TcpUtil::GetBroadcastAddressBasedOnClass(ip);
    _mask = ip.isIPv6() ? IPAddress() : TcpUtil::GetSubnetMaskBasedOnClass(ip);
}

void NetworkInterface::setIPAddress(const sockaddr_storage* sa, socklen_t salen) {
    setIPAddress(IPAddress(sa, salen));
}

void NetworkInterface::setNetMask(const IPAddress& ip) {
    if (!_addr.isIPv6() && !ip.isIPv6()) _mask = ip;
}

void NetworkInterface::_setBroadcastFromMask() {
    const auto mask = static_cast<uint32>(int(_mask));
    _broadcast = (static_cast<uint32>(int(_addr)) & mask) | ~mask;
}

a_bool NetworkInterface::isAddressInSameSubnet(const IPAddress& ip) const {
    if (ip.isIPv6()) return false;
    const int mask = int(_mask);
    return (int(_addr) & mask) == (int(ip) & mask);
}

a_bool NetworkInterface::isSameEntry(const NetworkInterface& other) const {
    return std::strcmp(_name, other._name) == 0 && _ifIndex == other._ifIndex &&
           _flags == other._flags && same_bytes(_addr, other._addr) &&
           same_bytes(_mask, other._mask) && same_bytes(_broadcast, other._broadcast);
}

void NetworkInterface::setName(const char* name, size_t length) {
    length = std::min(length, sizeof _name - 1);
    if (length != 0) std::memcpy(_name, name, length);
    _name[length] = '\0';
}

a_bool NetworkInterface::isUp() const {
    return (_flags & IFF_UP) != 0;
}

a_bool NetworkInterface::hasBroadcast() const {
    return (_flags & IFF_BROADCAST) != 0;
}

a_bool NetworkInterface::isLoopback() const {
    return _flags == 0 ? _addr.isLoopback() : (_flags & IFF_LOOPBACK) != 0;
}

a_bool NetworkInterface::getMACAddress(char* buf, size_t len) const {
    return hex_text(_mac_addr, true, ":", buf, len);
}

a_bool NetworkInterface::getMACAddressInTransOrder(char* buf, size_t len, const char* sep) const {
    return hex_text(_mac_addr, false, sep, buf, len);
}

int NetworkInterface::getNumNICs() {
    return NIListReader(a_ni_source()).CountLines();
}
