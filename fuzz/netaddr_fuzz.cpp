/// Compares the literal checks with models that take a text apart instead of scanning it, and reads
/// back every address that is written. Each input is tried as text as it stands, as text over the
/// characters that literals are made of, and as the bytes of an address.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "netlib/netutil.h"

namespace {

void Require(bool holds, const char* rule, const std::string& text) {
    if (holds) return;
    std::fprintf(stderr, "%s: \"%s\"\n", rule, text.c_str());
    std::abort();
}

bool Consists(std::string_view text, std::string_view of) {
    return text.find_first_not_of(of) == std::string_view::npos;
}

constexpr std::string_view digits = "0123456789";
constexpr std::string_view hex_digits = "0123456789abcdefABCDEF";
constexpr std::string_view letters_and_digits =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

/// Whether a text of digits, which may be empty, is a number of at most `limit` (five digits).
bool IsNumberUpTo(std::string_view text, int limit) {
    if (!Consists(text, digits)) return false;
    text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
    return text.size() <= 5 && std::atoi(std::string(text).c_str()) <= limit;
}

std::vector<std::string_view> Split(std::string_view text, char at) {
    std::vector<std::string_view> parts;
    for (size_t end = text.find(at); end != std::string_view::npos; end = text.find(at)) {
        parts.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    parts.push_back(text);
    return parts;
}

bool ModelIPv4(std::string_view text, bool allow_port) {
    if (const size_t colon = text.find(':'); colon != std::string_view::npos) {
        if (!allow_port || !IsNumberUpTo(text.substr(colon + 1), 65535)) return false;
        text = text.substr(0, colon);
    }
    const std::vector<std::string_view> parts = Split(text, '.');
    return parts.size() == 4 && std::all_of(parts.begin(), parts.end(),
                                            [](auto part) { return IsNumberUpTo(part, 255); });
}

/// One group between colons. An embedded IPv4 address is one too.
bool ModelGroup(std::string_view group, bool& embedded) {
    const size_t dot = group.find('.');
    if (dot == std::string_view::npos) return group.size() <= 4 && Consists(group, hex_digits);
    embedded = true;
    return dot >= 1 && dot <= 4 && group.size() <= 58 && ModelIPv4(group, false);
}

bool ModelIPv6(std::string_view text, bool allow_port) {
    char wanted_bracket = '\0';
    std::string body(text);
    const size_t closing = text.find_first_of(")]");
    if (closing != std::string_view::npos) {
        const std::string_view rest = text.substr(closing + 1);
        const bool port = allow_port && rest.starts_with(':') && rest.size() <= 6 &&
                          IsNumberUpTo(rest.substr(1), 65535);
        if (!rest.empty() && !port) return false;
        wanted_bracket = text[closing] == ')' ? '(' : '[';
        body = text.substr(0, closing);
    }
    if (const size_t percent = body.find('%'); percent != std::string::npos) {
        if (!Consists(std::string_view(body).substr(percent + 1), letters_and_digits)) return false;
        body.resize(percent);
    }

    size_t doubles = 0;
    for (size_t at = body.find("::"); at != std::string::npos; at = body.find("::", at + 1)) {
        ++doubles;
    }
    const auto colons = std::count(body.begin(), body.end(), ':');
    if (doubles > 1 || colons > 7) return false;

    const size_t opening = body.find_first_of("([");
    if ((opening != std::string::npos) != (wanted_bracket != '\0')) return false;
    if (wanted_bracket != '\0') {
        if (body[opening] != wanted_bracket || colons < 2) return false;
        if (opening > 0 && body[opening - 1] != ':') return false;
        body.erase(opening, 1);
    }
    bool embedded = false;
    for (const std::string_view group : Split(body, ':')) {
        if (!ModelGroup(group, embedded)) return false;
    }
    return colons == 7 || doubles == 1 || (embedded && colons == 6);
}

uint16_t ModelPort(std::string_view text) {
    if (ModelIPv6(text, true)) {
        size_t closing = text.find(')');
        if (closing == std::string_view::npos) closing = text.find(']');
        if (closing == std::string_view::npos) return 0;
        text.remove_prefix(closing);
    }
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) return 0;
    text.remove_prefix(colon + 1);
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    int64_t number = 0;
    for (const char c : text) {
        if (digits.find(c) == std::string_view::npos || number > INT32_MAX) break;
        number = number * 10 + (c - '0');
    }
    number = std::clamp<int64_t>(negative ? -number : number, INT32_MIN, INT32_MAX);
    return static_cast<uint16_t>(number);
}

void CheckLiteral(const std::string& text) {
    const char* const str = text.c_str();
    for (const bool port : {false, true}) {
        Require(TcpUtil::IsIPv4Address(str, port) == ModelIPv4(text, port), "IPv4", text);
        const bool v6 = text.find(':') != std::string::npos && ModelIPv6(text, port);
        Require(TcpUtil::IsIPv6Address(str, port) == v6, "IPv6", text);
    }
    Require(TcpUtil::GetPortNumber(str) == ModelPort(text), "port", text);
}

void CheckRoundTrip(const IPAddress& ip) {
    char text[80];
    Require(ip.toString(text, sizeof text, true, false, true), "prints", "");
    const IPAddress back(text);
    Require(back.sameIPAddress(ip), "same address", text);
    Require(back.getPortNumber() == ip.getPortNumber(), "same port", text);
    const uint32 scope = ip.getScopeId();
    Require(back.getScopeId() == (scope <= 999 ? scope : 0), "same scope", text);
    CheckLiteral(text);
}

void CheckAddress(const uint8_t* data, size_t size) {
    struct {
        in6_addr v6;
        uint32_t v4;
        uint16_t scope;
        uint16_t port;
    } bytes = {};
    std::memcpy(&bytes, data, std::min(size, sizeof bytes));
    IPAddress v4(bytes.v4);
    v4.setPortNumber(bytes.port);
    CheckRoundTrip(v4);
    if (!TcpUtil::IsIPv6Supported()) return;
    IPAddress v6(bytes.v6, bytes.scope % 1200U);
    v6.setPortNumber(bytes.port);
    CheckRoundTrip(v6);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    TcpUtil::Init();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr std::string_view alphabet = "::::....000111122355569afFg%(([))]] -x";
    const std::string raw(reinterpret_cast<const char*>(data), size);
    CheckLiteral(raw.c_str());
    std::string dense(raw);
    for (char& c : dense) c = alphabet[static_cast<uint8_t>(c) % alphabet.size()];
    CheckLiteral(dense);
    CheckAddress(data, size);
    return 0;
}
