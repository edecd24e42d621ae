#include "netlib/unix_nilist.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "netlib/netutil.h"
#include "utils/unix/posixio.h"

namespace {

/// Hands out the lines of a file; what a line has beyond 1023 bytes is lost.
class LineReader {
  public:
    // Kept: the mode "ro", in which the C library ignores the second letter.
    explicit LineReader(const char* path) : _file(_posix_fopen(path, "ro")) {}
    ~LineReader() {
        if (_file != nullptr) std::fclose(_file);
    }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    a_bool is_open() const { return _file != nullptr; }
    /// Whether reading failed, so that the end was not that of the file.
    a_bool has_failed() const { return std::ferror(_file) != 0; }
    /// The next line without its end, valid until the next call; null at the end.
    // Not with fgets(3), which does not tell how much it read where a line holds a zero byte.
    const char* next() {
        size_t length = 0;
        int c = 0;
        while ((c = std::getc(_file)) != EOF && c != '\n') {
            if (length < sizeof _line - 1) _line[length++] = static_cast<char>(c);
        }
        if (c == EOF && length == 0) return nullptr;
        _line[length] = '\0';
        return _line;
    }

  private:
    std::FILE* _file;
    char _line[1024] = {};
};

/// The name in a line of the interface list: the text before ":". False for the header lines.
a_bool take_name(const char* line, NetworkInterface& entry) {
    const char* const colon = std::strchr(line, ':');
    if (colon == nullptr) return false;
    while (line < colon && (*line == ' ' || *line == '\t')) ++line;
    entry.setName(line, static_cast<size_t>(colon - line));
    return true;
}

constexpr size_t address_digits = 32;

/// An IPv6 address as exactly 32 hex digits.
a_bool parse_address(const char* digits, in6_addr& address) {
    if (std::strlen(digits) != address_digits) return false;
    // Not with inet_pton(3), which wants colons.
    for (a_byte& byte : address.s6_addr) {
        const char pair[] = {digits[0], digits[1], '\0'};
        byte = static_cast<a_byte>(std::strtoul(pair, nullptr, 16));
        digits += 2;
    }
    return true;
}

/// Null without memory.
std::unique_ptr<NetworkInterface> new_entry() {
    return std::unique_ptr<NetworkInterface>(new (std::nothrow) NetworkInterface());
}

a_bool has_loopback(NetworkInterface_list& list) {
    for (NetworkInterface_iter iter(list); !iter.is_past(); iter.next()) {
        if (iter.get()->isLoopback()) return true;
    }
    return false;
}

unsigned long count_of(NetworkInterface_list& list) {
    unsigned long length = 0;
    for (NetworkInterface_iter iter(list); !iter.is_past(); iter.next()) ++length;
    return length;
}

}  // namespace

a_bool NIListReader::ReadIPv4(NetworkInterface_list& list) const {
    LineReader lines(_source.dev);
    if (!lines.is_open()) return false;
    while (const char* line = lines.next()) {
        std::unique_ptr<NetworkInterface> entry = new_entry();
        // Not just left out: half a list would pass for the whole.
        if (entry == nullptr) return false;
        if (!take_name(line, *entry) || !entry->_getInterfaceInfo(AF_INET)) continue;
        list.append(entry.release());
    }
    return !lines.has_failed();
}

// "fe8000000000000000fc00fffe000001 04 40 20 80     eth0": address, interface index, prefix length,
// scope, flags (all in hex) and name.
// Kept: a name has at most eight characters here; the rest is cut.
a_bool NIListReader::ParseIPv6(const char* line, NetworkInterface& entry) {
    char digits[address_digits + 2];
    unsigned int index = 0;
    unsigned int prefix_length = 0;
    unsigned int scope = 0;
    unsigned int flags = 0;
    char name[9];
    // The kernel pads these numbers to two digits, but an index may have more.
    const int fields = std::sscanf(line, " %33[0-9a-fA-F] %8x %8x %8x %8x %8s", digits, &index,
                                   &prefix_length, &scope, &flags, name);
    in6_addr address;
    if (fields != 6 || !parse_address(digits, address)) return false;
    entry.setName(name, std::strlen(name));
    entry._addr = IPAddress(address, index);
    entry._broadcast = entry._addr.isLoopback()
                           ? entry._addr
                           : TcpUtil::GetBroadcastAddressBasedOnClass(entry._addr);
    entry._ifIndex = index;
    entry._flags = static_cast<int>(flags);
    entry._supports_ipv6 = true;
    return true;
}

a_bool NIListReader::ReadIPv6(NetworkInterface_list& list) const {
    LineReader lines(_source.if_inet6);
    // A kernel without IPv6 has no such list, which is no failure.
    if (!lines.is_open()) return true;
    while (const char* line = lines.next()) {
        std::unique_ptr<NetworkInterface> entry = new_entry();
        if (entry == nullptr) return false;
        if (ParseIPv6(line, *entry)) list.append(entry.release());
    }
    return !lines.has_failed();
}

a_bool NIListReader::AppendMadeUpLoopback(NetworkInterface_list& list, a_bool ipv6) {
    std::unique_ptr<NetworkInterface> entry = new_entry();
    if (entry == nullptr) return false;
    entry->setName("lo0", 3);
    if (ipv6) {
        entry->_addr = IPAddress(in6addr_loopback);
        entry->_broadcast = entry->_addr;
        entry->_supports_ipv6 = true;
    } else {
        entry->_addr = static_cast<uint32>(INADDR_LOOPBACK);
        entry->_mask = uint32{0xFF000000};
        entry->_setBroadcastFromMask();
        entry->_supports_ipv4 = true;
    }
    list.append(entry.release());
    return true;
}

a_bool NIListReader::ReadAll(NetworkInterface_list& list) const {
    const a_bool ipv6 = TcpUtil::IsIPv6Supported();
    if (!ReadIPv4(list) || (ipv6 && !ReadIPv6(list))) return false;
    if (has_loopback(list)) return true;
    return AppendMadeUpLoopback(list, false) && (!ipv6 || AppendMadeUpLoopback(list, true));
}

a_bool NIListReader::Read(NetworkInterface_list& list, unsigned long& count) const {
    if (!ReadAll(list)) {
        list.delete_all();
        return false;
    }
    count = count_of(list);
    return true;
}

int NIListReader::CountLines() const {
    LineReader dev(_source.dev);
    if (!dev.is_open()) return -1;
    int count = 0;
    while (const char* line = dev.next()) {
        if (std::strchr(line, ':') != nullptr) ++count;
    }
    LineReader if_inet6(_source.if_inet6);
    while (if_inet6.is_open() && if_inet6.next() != nullptr) ++count;
    return count;
}

namespace TcpUtil {

a_bool _InternalGetNIList(NetworkInterface_list& list, unsigned long& count) {
    return NIListReader(a_ni_source()).Read(list, count);
}

}  // namespace TcpUtil
