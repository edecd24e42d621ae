#ifndef QUOREL_NETLIB_NETINTERFACE_H
#define QUOREL_NETLIB_NETINTERFACE_H

/// One address of one network interface of this host. An interface with several addresses appears
/// several times in the list that TcpUtil::GetNIList() hands out.
///
/// Threads: nothing here locks. Entries of the list handed out are read by many threads and must
/// not be changed; a thread that wants to change one works on a clone().

#include <cstddef>

#include "netlib/ipaddress.h"
#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"

class NetworkInterface : public c_utils_link {
  public:
    /// No name, no addresses, no flags, visible.
    NetworkInterface() = default;
    NetworkInterface(const NetworkInterface&) = default;
    NetworkInterface& operator=(const NetworkInterface&) = default;
    ~NetworkInterface() override;

    /// A copy made with new, in no list; the caller deletes it.
    NetworkInterface* clone() const;
    /// Makes `other` equal to this interface; its place in a list stays.
    void cloneTo(NetworkInterface& other) const;

    // Addresses

    IPAddress getIPAddress() const { return _addr; }
    /// The IPv4 net mask; not valid for IPv6.
    IPAddress getNetMask() const { return _mask; }
    /// The IPv4 broadcast address; for IPv6 the all-nodes address ff02::1 with the interface's
    /// scope id, or ::1 for loopback.
    IPAddress getBroadcastAddress() const { return _broadcast; }
    /// The same as text (IPAddress::toString), with the scope id but without port; false for null.
    a_bool getIPAddress(char* buf, size_t buflen) const;
    a_bool getNetMask(char* buf, size_t buflen) const;
    a_bool getBroadcastAddress(char* buf, size_t buflen) const;

    /// Sets the address, and mask and broadcast address from its class.
    /// Kept: supportsIPv4() becomes true for an IPv6 address too.
    void setIPAddress(const IPAddress& ip);
    void setIPAddress(const sockaddr_storage* sa, socklen_t salen);
    /// Ignored when the interface's address or `ip` is IPv6.
    void setNetMask(const IPAddress& ip);

    uint16 getPortNumber() const { return _addr.getPortNumber(); }
    void setPortNumber(uint16 port) { _addr.setPortNumber(port); }

    /// Whether `ip` is in the network of the interface's address and mask; false for IPv6.
    a_bool isAddressInSameSubnet(const IPAddress& ip) const;
    /// Whether name, index, flags and addresses are those of `other`.
    a_bool isSameEntry(const NetworkInterface& other) const;

    // Identity and state

    const char* getName() const { return _name; }
    /// At most 255 characters; more are cut. `name` is null with length 0 alone.
    void setName(const char* name, size_t length);
    const char* getDNSSuffix() const { return _dns_suffix; }
    /// The kernel's index; 0 when it has none.
    uint32 getIfIndex() const { return _ifIndex; }
    /// IFF_... for IPv4 (netdevice(7)); for IPv6 the address flags of the kernel's list.
    int getFlags() const { return _flags; }
    a_bool isUp() const;
    a_bool hasBroadcast() const;
    /// By the flags, or by the address where there are none.
    /// Kept: IPv6 entries are asked the same bit, which says something else in address flags.
    a_bool isLoopback() const;
    a_bool isVisible() const { return _is_visible; }
    a_bool supportsIPv4() const { return _supports_ipv4; }
    a_bool supportsIPv6() const { return _supports_ipv6; }

    /// A mark for whoever compares lists; the library does not use it.
    void setUpdateFlag() { _update_flag = true; }
    void clearUpdateFlag() { _update_flag = false; }
    a_bool checkUpdateFlag() const { return _update_flag; }

    /// The six bytes of the hardware address in hex: last to first with ":" between them, or first
    /// to last with `sep`, null for none. False when `buf` of `len` bytes is null or too small. The
    /// reader of this system does not fetch hardware addresses: they are zero.
    a_bool getMACAddress(char* buf, size_t len) const;
    a_bool getMACAddressInTransOrder(char* buf, size_t len, const char* sep) const;

    /// How many entries the kernel's lists have; -1 when the first of them cannot be read.
    static int getNumNICs();

    // Asking the kernel

    /// Fills in what the kernel knows of the interface getName() in address family `domain`: flags,
    /// index and, unless the address is already known, the addresses. False when it has none.
    a_bool _getInterfaceInfo(int domain);
    /// Asks for the flags, unless they are known.
    a_bool _getFlags(int domain);

  private:
    friend class NIListReader;

    a_bool _takeIPv4(class InterfaceQuery& query);
    a_bool _takeIPv6(class InterfaceQuery& query);
    void _setBroadcastFromMask();

    IPAddress _addr;
    IPAddress _mask;
    IPAddress _broadcast;
    a_byte _mac_addr[8] = {};
    uint32 _ifIndex = 0;
    char _dns_suffix[256] = {};
    char _name[256] = {};
    int _flags = 0;
    a_bool _supports_ipv4 = false;
    a_bool _supports_ipv6 = false;
    a_bool _update_flag = false;
    a_bool _is_visible = true;
};

using NetworkInterface_list = c_utils_list<NetworkInterface>;
using NetworkInterface_iter = c_utils_iter<NetworkInterface>;

#endif
