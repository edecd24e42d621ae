#ifndef QUOREL_NETLIB_UNIX_NILIST_H
#define QUOREL_NETLIB_UNIX_NILIST_H

/// Reads the host's interfaces from the kernel's two lists and, for IPv4, from the interface calls
/// of netdevice(7). Callers of the network layer use TcpUtil::GetNIList(), which keeps the result.
///
/// A line that does not parse is skipped and a name that is too long is cut, so that a strange or
/// damaged list costs an entry at most.

#include "netlib/netinterface.h"
#include "utils/etc/uttypes.h"

/// Where the kernel's lists are.
struct a_ni_source {
    const char* dev = "/proc/net/dev";            ///< one line per interface, after headers
    const char* if_inet6 = "/proc/net/if_inet6";  ///< one line per IPv6 address; may be missing
};

class NIListReader {
  public:
    explicit NIListReader(const a_ni_source& source) : _source(source) {}

    /// Appends every interface to the empty `list`; `count` becomes their number. When none is a
    /// loopback interface, a made-up one is added. The caller owns the entries. False, with the
    /// list empty, when the first of the kernel's lists cannot be opened, one cannot be read to its
    /// end, or memory runs out.
    a_bool Read(NetworkInterface_list& list, unsigned long& count) const;

    /// The number of entries in the two lists; -1 when the first cannot be opened.
    int CountLines() const;

  private:
    a_bool ReadAll(NetworkInterface_list& list) const;
    a_bool ReadIPv4(NetworkInterface_list& list) const;
    a_bool ReadIPv6(NetworkInterface_list& list) const;
    static a_bool ParseIPv6(const char* line, NetworkInterface& entry);
    static a_bool AppendMadeUpLoopback(NetworkInterface_list& list, a_bool ipv6);

    a_ni_source _source;
};

namespace TcpUtil {

/// NIListReader::Read of this host's lists.
a_bool _InternalGetNIList(NetworkInterface_list& list, unsigned long& count);

}  // namespace TcpUtil

#endif
