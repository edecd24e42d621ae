#ifndef QUOREL_NETLIB_IPADDRESS_H
#define QUOREL_NETLIB_IPADDRESS_H

/// The endpoint address of the network layer: an IPv4 or IPv6 socket address (RFC 791, RFC 4291)
/// with its port and, for IPv6, its scope id, plus a flag that says whether it means anything.
///
/// A null text or socket address gives an address that is not valid, a null buffer a false result.
/// No operation reports an error code. Failure shows as isValid() false, a false result, 0 from
/// getPortNumber() and getScopeId(), or -1 from the conversion to int.
///
/// Threads: an address has no lock; one object belongs to one thread at a time. Operations that
/// resolve text or look up a name may block on the resolver and take its lock; IPv6 text needs
/// TcpUtil::Init() to have found IPv6 supported (netlib/netutil.h).

#include <cstddef>

#include <netinet/in.h>
#include <sys/socket.h>

#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"

class Socket;

/// What an IPv6 address is for, by its leading bits.
enum e_IPv6AddressType {
    addrUnknown = 0,  ///< not IPv6, or not valid
    addrReserved = 1,
    addrUnassigned = 2,
    addrGlobalUnicast = 3,
    addrLinkLocalUnicast = 4,
    addrSiteLocalUnicast = 5,
    addrMulticast = 6,
    addrIPv4Mapped = 7,     ///< ::ffff:w.x.y.z
    addrIPv4Compatible = 8  ///< ::w.x.y.z, which takes in ::1
};

class IPAddress : public c_utils_link {
  public:
    /// Empty: not valid, all bytes zero, length that of a whole sockaddr_storage.
    IPAddress();
    /// The IPv4 address `addr`, in host byte order; port 0.
    explicit IPAddress(uint32 addr);
    /// The IPv6 address `addr` (network order, as in6addr_any); port 0.
    explicit IPAddress(const in6_addr& addr, uint32 scope_id = 0);
    /// As reset(sa, len).
    IPAddress(const sockaddr_storage* sa, socklen_t len);
    /// As reset(text): a literal or a host name.
    explicit IPAddress(const char* text);
    /// The socket's own local address; not valid if the socket has none.
    explicit IPAddress(Socket& socket);
    /// A copy is in no list; an assignment leaves the target in its own.
    IPAddress(const IPAddress& other);
    IPAddress& operator=(const IPAddress& other);
    IPAddress& operator=(uint32 addr);
    ~IPAddress() override;

    /// A copy made with new; the caller deletes it.
    IPAddress* clone() const;

    // Setting

    /// Takes over a socket address of `len` bytes, at most a sockaddr_storage. A family other than
    /// AF_INET and AF_INET6 makes the address invalid.
    void reset(const sockaddr_storage* sa, socklen_t len);
    /// Resolves a literal or a host name, with an optional port, to its first address. Returns
    /// isValid(); a failure leaves the old bytes in place but not valid.
    a_bool reset(const char* text);
    /// True also makes isIPv6() follow the family: for use after a system call has filled
    /// get_sockaddr().
    void setValid(a_bool v);
    /// 0.0.0.0, or "::" for `ipv6` (not valid where IPv6 is not supported); port 0.
    void use_INADDR_ANY(a_bool ipv6);
    /// The port in host order, stored whatever the family and validity.
    void setPortNumber(uint16 port);
    /// Ignored for IPv4.
    void setScopeId(uint32 scope_id);

    // Reading

    a_bool isValid() const { return _valid; }
    a_bool isIPv6() const { return _isv6; }
    /// The port in host order; 0 when not valid.
    uint16 getPortNumber() const;
    /// The interface index that a link-local address belongs to; 0 for IPv4 or when not valid.
    uint32 getScopeId() const;
    /// The IPv4 address in host order; -1 for IPv6 or when not valid.
    /// Kept: 255.255.255.255 reads as -1 too.
    explicit operator int() const;
    /// Compare as IPv4, `value` in host order. An IPv6 address equals no value.
    a_bool operator==(uint32 value) const;
    a_bool operator!=(uint32 value) const;

    /// Direct access for the socket calls. The storage is always a whole sockaddr_storage. A call
    /// that fills it is offered sizeof(sockaddr_storage) as the room, whatever the length was, and
    /// leaves the new length in *get_sockaddr_len_ptr(); after it comes setValid(true).
    sockaddr_storage* get_sockaddr() { return &_sa; }
    const sockaddr_storage* get_sockaddr() const { return &_sa; }
    socklen_t get_sockaddr_len() const { return _salen; }
    socklen_t* get_sockaddr_len_ptr() { return &_salen; }
    sockaddr_in6* get_sockaddr_in6() { return &_sin6; }
    const sockaddr_in6* get_sockaddr_in6() const { return &_sin6; }

    // Classification

    /// The same host address: ports and flow labels do not count, scope ids count only when both
    /// sides have one, and an IPv4 address equals its IPv4-mapped and IPv4-compatible IPv6 forms.
    /// False when either side is not valid.
    a_bool sameIPAddress(const IPAddress& other) const;
    a_bool is_INADDR_ANY_v4() const;
    a_bool is_INADDR_ANY_v6() const;
    a_bool is_INADDR_ANY() const;
    /// ::1 or 127.0.0.1.
    /// Kept: the rest of 127.0.0.0/8 is not loopback here, and ::1 counts even when not valid.
    a_bool isLoopback() const;
    /// IPv4: the blocks of RFC 1918. IPv6: fc00::/7 (RFC 4193), or what the embedded IPv4 address
    /// is; link-local and site-local addresses are not private.
    a_bool isPrivateNet() const;
    e_IPv6AddressType getIPv6AddressType() const;
    /// The IPv4 address inside an IPv4-mapped or IPv4-compatible one, port 0; for any other address
    /// 0.0.0.0, not valid.
    IPAddress getIPv4EmbeddedAddress() const;

    // Text

    /// Writes the address as text, terminated, into `buf` of `buflen` bytes: 192.0.2.7,
    /// 192.0.2.7:25, fe80::1%2, (fe80::1%2):25. With `resolve_hostname` the host's name stands for
    /// the address if a reverse lookup finds one. False when not valid or when the text does not
    /// fit; `buf` then holds the part that was written.
    a_bool toString(char* buf, size_t buflen, a_bool include_port, a_bool resolve_hostname,
                    a_bool include_scope) const;

  private:
    a_bool embedsIPv4() const;

    union {  // one socket address, in network byte order, seen by its family
        sockaddr_storage _sa;
        sockaddr_in _sin;
        sockaddr_in6 _sin6;
    };
    socklen_t _salen;  // meaningful length of _sa
    a_bool _valid;
    a_bool _isv6;  // true only when the family is AF_INET6
};

/// A list of addresses; see utils/contain/utlist.h for who owns them.
using IPAddress_list = c_utils_list<IPAddress>;
using IPAddress_iter = c_utils_iter<IPAddress>;

#endif
