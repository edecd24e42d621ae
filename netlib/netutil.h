#ifndef QUOREL_NETLIB_NETUTIL_H
#define QUOREL_NETLIB_NETUTIL_H

/// TcpUtil: text to addresses and back, checks of address literals, and questions about the local
/// host. Every function reports failure by a false or null result. A null text, name, buffer or
/// socket address is a failure like any other; what else may be null is said where it is.
///
/// Between the first Init() and the matching last Fini() everything works. Outside of that IPv6
/// counts as not supported, host names do not resolve, addresses have no names, LookupHostNames
/// knows the host's own name alone and there is no interface list; literals of IPv4, their checks
/// and the address arithmetic work all the same.
///
/// Threads: any thread may call anything here, except as noted, while an Init() of its own is in
/// force: the last Fini() takes the locks away. Names are looked up with getaddrinfo, any number at
/// a time. Where IPv6 is not supported, and for names of addresses, it is gethostbyname_r and
/// gethostbyaddr_r, one call at a time (ThreadCritSect): a resolver that does not answer then holds
/// up every other lookup.

#include <cstddef>

#include <netinet/in.h>
#include <sys/socket.h>

#include "netlib/ipaddress.h"
#include "netlib/netinterface.h"
#include "utils/etc/uttypes.h"

class UTOStream;

namespace TcpUtil {

// Lifetime

/// Creates the locks and finds out whether IPv6 is supported, when this is the first of the calls
/// now in force. False when that fails; then there is nothing to undo.
a_bool Init();
/// Takes one Init() back; the last one drops the interface lists and the locks. Does nothing when
/// no Init() is in force.
void Fini();

/// Whether an IPv6 TCP socket could be made at the first Init().
a_bool IsIPv6Supported();

// Resolution

/// Which addresses of a host to take.
enum eAddressType { ADDR_IPv4 = 0, ADDR_IPv6 = 1, ADDR_BOTH = 2 };

/// Resolves `text` to one address, the first in the system's order. `text` is a host name or an
/// IPv4 literal, either with an optional ":port"; or an IPv6 literal, with an optional "%scope"
/// (interface name or index), and with an optional ":port" when it stands in () or []. Without a
/// port the address has port 0. On failure `ip` is unchanged.
///
/// A port must start with a digit and be below 65536. A host of more than 254 characters is cut
/// there, without a port.
a_bool Resolve(const char* text, IPAddress& ip, eAddressType type);
/// The same, then sets the port of `ip` to `port`.
a_bool Resolve(const char* text, uint16 port, IPAddress& ip, eAddressType type);
/// Appends every address of `text` to `list`; the caller owns and deletes the entries, also those
/// of a list that was not empty before. A failure leaves the list as it was.
a_bool ResolveAll(const char* text, IPAddress_list& list, eAddressType type);

/// Writes the host name of `ip` into `buf` of `buflen` bytes, terminated. False when `ip` is not
/// valid, has no name, or the name does not fit.
/// Kept: IPv6 addresses never have one, as only four bytes of them are looked up.
a_bool LookupHostName(const IPAddress& ip, char* buf, size_t buflen);
/// The names of the local host: its own name, then the official name and aliases that the resolver
/// has for it, each once. *names becomes a null-terminated array for FreeHostNames; it is untouched
/// on failure.
a_bool LookupHostNames(char*** names);
/// Frees an array of names; null is ignored.
void FreeHostNames(char** names);

// Literals

/// Four decimal numbers of at most 255 between three dots, with an optional ":" and port number of
/// at most 65535 if `allow_port`. Null is no address.
/// Kept: a number may be missing and reads as 0, so "1..2.3" passes.
a_bool IsIPv4Address(const char* str, a_bool allow_port);
/// An IPv6 literal, with an optional "%" and letters and digits for the scope, bare or in () or [];
/// after the bracket ":" and a port of at most five digits and 65535 if `allow_port`. Null is no
/// address.
/// Kept: judged by its characters and number of colons, so some texts pass that no resolver takes
/// ("1:2:3:4:5:6:7:"), and "1:2:3:4:5:6:7::" does not.
a_bool IsIPv6Address(const char* str, a_bool allow_port);
/// Either of the two.
a_bool IsIPAddress(const char* str, a_bool allow_port);
/// The port in "host:port" or "[literal]:port"; blanks may come before it. 0 when there is none.
/// Kept: a number beyond 16 bits is cut to its low 16 bits.
uint16 GetPortNumber(const char* str);

// Text

/// Writes an address as text, terminated, into `buf` of `buflen` bytes: 192.0.2.7, 192.0.2.7:25,
/// fe80::1%2, (fe80::1%2):25. False when the text does not fit; `buf` then holds the part that was
/// written. An IPv4 or IPv6 address is read as its family says, whatever `salen` is.
/// Kept: an IPv6 address with a port stands in parentheses, and only scope ids from 1 to 999 are
/// written.
a_bool AddressToString(const sockaddr_storage* sa, socklen_t salen, char* buf, size_t buflen,
                       a_bool include_port, a_bool include_scope);
a_bool AddressToString(const sockaddr_in* sa, char* buf, size_t buflen, a_bool include_port);
/// The same of the address that `addr` resolves to: with `port` and scope, or without port.
a_bool AddressToString(const char* addr, uint16 port, char* buf, size_t buflen);
a_bool AddressToString(const char* addr, char* buf, size_t buflen);
/// Writes the text of `ip` with port and scope to `out`. False, with nothing written, when `ip` is
/// not valid; false too when `out` did not take all of it.
a_bool ListenerAddrToUTOStream(const IPAddress& ip, UTOStream& out);

// Address arithmetic

/// ::1 if `ipv6` is asked for and supported, else 127.0.0.1.
IPAddress GetLoopbackIPAddress(a_bool ipv6);
/// The class of an IPv4 address, "A", "B" or "C"; "" for any other address.
const char* GetClass(const sockaddr_storage* sa, socklen_t salen);
/// The mask of the address's class; 255.255.255.255 for an address without class.
IPAddress GetSubnetMaskBasedOnClass(const IPAddress& ip);
/// The broadcast address of the class's network, 255.255.255.255 for 0.0.0.0; for IPv6 the
/// all-nodes address ff02::1 (RFC 4291) with the scope id of `ip`.
IPAddress GetBroadcastAddressBasedOnClass(const IPAddress& ip);
/// How many leading bits the two addresses share: up to 32, or 128 for IPv6. 0 when one is IPv4 and
/// the other IPv6, or one is not valid.
uint32 CalcNetworkMatchScore(const IPAddress& a, const IPAddress& b);

// The host's interfaces

/// The interfaces of this host, read on first use and kept. *count, unless null, becomes their
/// number. Null on failure. The list belongs to the library: it is read-only and stays as it is
/// until the last Fini(), so it is walked without a lock.
NetworkInterface_list* GetNIList(unsigned long* count);
/// Reads the interfaces again. False when that fails, which leaves the list as it was. Lists that
/// were handed out before stay valid until the last Fini(); they show the interfaces of their time,
/// so each call that finds a change keeps the memory of one more list.
a_bool UpdateNIList();
/// The first interface that has the address or the name; null when there is none. It stays
/// valid as the list does.
const NetworkInterface* FindInterfaceByIPAddress(const IPAddress& ip);
const NetworkInterface* _find_interface_by_name(const char* name);
/// Whether an interface of this host has the address; `text` may be whatever Resolve takes.
a_bool IsLocalIPAddress(const IPAddress& ip);
a_bool IsLocalIPAddress(const sockaddr_storage* sa, socklen_t salen);
a_bool IsLocalIPAddress(const char* text);

// The site's own network

/// What the two questions below look for: the DNS domain of the site, and the name of a host that
/// resolves only inside it. Null or empty: not set, as at the start. The texts are not copied; set
/// them before other threads ask.
void SetInternalNetwork(const char* domain, const char* probe_host);
/// Whether the first 4096 bytes of the resolver's configuration name the domain,
/// whatever the case of letters. False while it is not set.
a_bool IsOnInternalNetwork();
/// If an interface has a private address, whether the probe host resolves; otherwise, or while no
/// probe host is set, IsOnInternalNetwork().
a_bool IsOnInternalNetwork_Ex();

}  // namespace TcpUtil

#endif
