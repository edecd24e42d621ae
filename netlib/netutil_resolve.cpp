#include <cstdlib>
#include <cstring>
#include <new>

#include <arpa/inet.h>
#include <net/if.h>

#include "netlib/hostanswer.h"
#include "netlib/netcalls.h"
#include "netlib/netutil.h"
#include "netlib/netutil_state.h"
#include "utils/etc/utascii.h"

/// Text to addresses.

namespace {

enum a_target_kind { TARGET_IPv4, TARGET_IPv6, TARGET_NAME };

/// What a text asks for, taken apart.
struct a_target {
    a_target_kind kind;
    char host[255];  // a literal without its brackets, or a name
    uint16 port;     // 0: none
};

a_target_kind classify(const char* text) {
    if (TcpUtil::IsIPv4Address(text, true)) return TARGET_IPv4;
    return TcpUtil::IsIPv6Address(text, true) ? TARGET_IPv6 : TARGET_NAME;
}

/// Copies the host of `text` into `target`; returns the text of the port, null when there is none.
/// A host that fills its buffer has no port.
const char* split_off_port(const char* text, a_target& target) {
    const a_bool bracketed = target.kind == TARGET_IPv6;
    const char* const ends = bracketed ? ")]" : ":";
    for (size_t length = 0; length < sizeof target.host - 1; ++text) {
        if (*text == '\0') return nullptr;
        if (std::strchr(ends, *text) != nullptr) {
            if (bracketed && *++text == '\0') return nullptr;
            return text + 1;
        }
        if (!bracketed || std::strchr("([", *text) == nullptr) target.host[length++] = *text;
    }
    return nullptr;
}

a_bool read_port(const char* text, uint16& port) {
    if (!ut_is_digit(*text)) return false;
    const long number = std::strtol(text, nullptr, 10);  // LONG_MAX for what no long holds
    if (number > 65535) return false;
    port = static_cast<uint16>(number);
    return true;
}

a_bool take_apart(const char* text, a_target& target) {
    if (text == nullptr) return false;
    target = {};
    target.kind = classify(text);
    if (target.kind == TARGET_IPv6 && !TcpUtil::IsIPv6Supported()) return false;
    const char* const port = split_off_port(text, target);
    return port == nullptr || read_port(port, target.port);
}

/// The interface that the text after "%" names or numbers; 0 when there is none.
uint32 scope_index(const char* scope) {
    if (const uint32 index = if_nametoindex(scope); index != 0) return index;
    if (*scope == '\0' || scope[std::strspn(scope, "0123456789")] != '\0') return 0;
    // Wider than an index, so that a number beyond one does not come out as a small one.
    const unsigned long long number = std::strtoull(scope, nullptr, 10);
    const auto index = static_cast<uint32>(number);
    char name[IF_NAMESIZE];
    return index == number && if_indextoname(index, name) != nullptr ? index : 0;
}

/// What getaddrinfo finds for a target.
class SystemAnswer {
  public:
    explicit SystemAnswer(const a_target& target) {
        char host[sizeof target.host];
        std::memcpy(host, target.host, sizeof host);
        char* const percent = std::strchr(host, '%');
        // getaddrinfo takes a scope behind literals only; here a name may have one too.
        const uint32 scope = percent != nullptr ? scope_index(percent + 1) : 0;
        if (scope != 0) *percent = '\0';

        addrinfo hints = {};
        hints.ai_family = AF_UNSPEC;
        // Of one kind, or each address would come once for each kind of socket (getaddrinfo(3)).
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_protocol = IPPROTO_TCP;
        // No name server is asked about what is no name.
        if (target.kind != TARGET_NAME) hints.ai_flags = AI_NUMERICHOST;
        if (NetInterface::_getaddrinfo(host, &hints, &_first) != 0) _first = nullptr;
        if (scope != 0) set_scope(scope);
    }
    ~SystemAnswer() {
        if (_first != nullptr) NetInterface::_freeaddrinfo(_first);
    }
    SystemAnswer(const SystemAnswer&) = delete;
    SystemAnswer& operator=(const SystemAnswer&) = delete;

    /// Null when the resolver failed.
    const addrinfo* first() const { return _first; }

  private:
    void set_scope(uint32 scope) {
        if (_first == nullptr || _first->ai_family != AF_INET6) return;
        sockaddr_in6 address;  // a copy: ai_addr is another type's storage
        std::memcpy(&address, _first->ai_addr, sizeof address);
        address.sin6_scope_id = scope;
        std::memcpy(_first->ai_addr, &address, sizeof address);
    }

    addrinfo* _first = nullptr;
};

/// Takes the addresses of one target.
class Collector {
  public:
    Collector(uint16 port, a_bool all) : _port(port), _all(all) {}
    ~Collector() { _taken.delete_all(); }
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    void add(IPAddress ip) {
        ip.setPortNumber(_port);
        auto* const entry = new (std::nothrow) IPAddress(ip);
        if (entry == nullptr) {
            _out_of_memory = true;
        } else {
            _taken.append(entry);
        }
    }
    /// Whether more addresses would change anything.
    a_bool is_done() const { return _out_of_memory || (!_all && !_taken.is_empty()); }
    /// Whether there is nothing, and not for want of memory.
    a_bool found_none() const { return !_out_of_memory && _taken.is_empty(); }
    /// Moves the addresses to the end of `list`. False, with `list` as it was, when there is none,
    /// or was no memory for one.
    a_bool deliver(IPAddress_list& list) {
        if (_out_of_memory || _taken.is_empty()) return false;
        while (IPAddress* const first = _taken.get_first()) list.append(first);
        return true;
    }

  private:
    IPAddress_list _taken;
    const uint16 _port;
    const a_bool _all;
    a_bool _out_of_memory = false;
};

a_bool wants(TcpUtil::eAddressType type, int family) {
    if (family == AF_INET) return type != TcpUtil::ADDR_IPv6;
    return family == AF_INET6 && type != TcpUtil::ADDR_IPv4;
}

IPAddress from_sockaddr(const sockaddr* sa, socklen_t len) {
    sockaddr_storage storage = {};
    if (len > sizeof storage) len = sizeof storage;
    std::memcpy(&storage, sa, len);
    return IPAddress(&storage, len);
}

/// Keeps the order of the system, which knows which address is the best to try (RFC 6724).
void take_answer(const addrinfo* answer, TcpUtil::eAddressType type, Collector& collector) {
    for (; answer != nullptr && !collector.is_done(); answer = answer->ai_next) {
        if (!wants(type, answer->ai_family)) continue;
        collector.add(from_sockaddr(answer->ai_addr, answer->ai_addrlen));
    }
}

void take_host_entry(const char* host, Collector& collector) {
    // gethostbyname_r needs no lock for its own sake; this keeps the promise of netlib/netutil.h
    // that only one such look-up is under way.
    const UTLock lock(TcpUtil::ThreadCritSect.p_mutex);
    if (!lock.is_held()) return;
    HostAnswer answer;
    const hostent* const entry = NetInterface::_gethostbyname(host, answer);
    if (entry == nullptr || entry->h_addrtype != AF_INET) return;
    for (char** at = entry->h_addr_list; *at != nullptr && !collector.is_done(); ++at) {
        uint32 address;
        std::memcpy(&address, *at, sizeof address);
        collector.add(IPAddress(ntohl(address)));
    }
}

/// Resolves as Resolve and ResolveAll do; appends all addresses, or only the first. The caller owns
/// the entries. A failure, want of memory among them, leaves the list as it was.
a_bool do_resolve(const char* text, IPAddress_list& list, TcpUtil::eAddressType type, a_bool all) {
    a_target target;
    if (!take_apart(text, target)) return false;
    Collector collector(target.port, all);
    // By itself, since inet_addr(3) gives the same for a text that is no address.
    if (std::strcmp(target.host, "255.255.255.255") == 0) {
        collector.add(IPAddress(static_cast<uint32>(INADDR_BROADCAST)));
        return collector.deliver(list);
    }
    if (TcpUtil::IsIPv6Supported()) {
        const SystemAnswer answer(target);
        if (answer.first() == nullptr) return false;
        take_answer(answer.first(), type, collector);
        if (!collector.found_none()) return collector.deliver(list);
    }
    if (type == TcpUtil::ADDR_IPv6 || target.kind == TARGET_IPv6) return false;
    if (target.kind == TARGET_NAME) {
        take_host_entry(target.host, collector);
    } else {
        // Kept: a literal that inet_addr refuses, as one with an empty part, is 255.255.255.255.
        collector.add(IPAddress(ntohl(inet_addr(target.host))));
    }
    return collector.deliver(list);
}

}  // namespace

namespace TcpUtil {

a_bool Resolve(const char* text, IPAddress& ip, eAddressType type) {
    IPAddress_list list;
    if (!do_resolve(text, list, type, false)) return false;
    if (const IPAddress* const first = list.get_first(); first != nullptr) ip = *first;
    list.delete_all();
    return true;
}

a_bool Resolve(const char* text, uint16 port, IPAddress& ip, eAddressType type) {
    if (!Resolve(text, ip, type)) return false;
    ip.setPortNumber(port);
    return true;
}

a_bool ResolveAll(const char* text, IPAddress_list& list, eAddressType type) {
    return do_resolve(text, list, type, true);
}

}  // namespace TcpUtil
