// Texts of addresses: they are of one family at most, a port is allowed and not demanded, what the
// C library takes for IPv4 is, and every address that is written reads back.
//
// An input is tried as text as it stands, as text over the characters that literals are made of,
// and as the bytes of an address.

#include <cstring>

#include <arpa/inet.h>

#include "fuzz/fuzzed.h"
#include "netlib/netutil.h"

namespace {

void check_literal(const char* text) {
    const bool v4 = TcpUtil::IsIPv4Address(text, false), v6 = TcpUtil::IsIPv6Address(text, false);
    check(!v4 || !v6);
    check(!v4 || TcpUtil::IsIPv4Address(text, true));
    check(!v6 || TcpUtil::IsIPv6Address(text, true));
    in_addr address;
    check(v4 || inet_pton(AF_INET, text, &address) != 1);
    TcpUtil::GetPortNumber(text);
}

void check_round_trip(const IPAddress& ip) {
    char text[80];
    check(ip.toString(text, sizeof text, true, false, true));
    const IPAddress back(text);
    check(back.sameIPAddress(ip) && back.getPortNumber() == ip.getPortNumber());
    const uint32 scope = ip.getScopeId();
    check(back.getScopeId() == (scope <= 999 ? scope : 0));
    check_literal(text);
}

void check_address(const uint8_t* data, size_t size) {
    struct {
        in6_addr v6;
        uint32_t v4;
        uint16_t scope;
        uint16_t port;
    } bytes = {};
    std::memcpy(&bytes, data, std::min(size, sizeof bytes));
    IPAddress v4(bytes.v4);
    v4.setPortNumber(bytes.port);
    check_round_trip(v4);
    if (!TcpUtil::IsIPv6Supported()) return;
    IPAddress v6(bytes.v6, bytes.scope % 1200U);
    v6.setPortNumber(bytes.port);
    check_round_trip(v6);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr std::string_view alphabet = "::::....000111122355569afFg%(([))]] -x";
    static const bool loaded = TcpUtil::Init();
    check(loaded);
    std::string text(reinterpret_cast<const char*>(data), size);
    check_literal(text.c_str());
    for (char& c : text) c = alphabet[static_cast<uint8_t>(c) % alphabet.size()];
    check_literal(text.c_str());
    check_address(data, size);
    return 0;
}
