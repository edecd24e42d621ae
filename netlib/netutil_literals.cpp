#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "netlib/netutil.h"
#include "utils/etc/utascii.h"

/// The checks of address literals. They judge character by character, in ASCII whatever the host's
/// locale is.

namespace {

constexpr long max_port = 65535;

a_bool is_hex_digit(char c) {
    return ut_is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

a_bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

long leading_number(const char* text) {
    return std::strtol(text, nullptr, 10);
}

/// The port after the closing bracket of an IPv6 literal.
a_bool is_port(const char* text) {
    constexpr size_t max_digits = 5;
    const size_t digits = std::strspn(text, "0123456789");
    return text[digits] == '\0' && digits <= max_digits && leading_number(text) <= max_port;
}

/// Reads an IPv6 literal from left to right, one rule per kind of character.
class IPv6Scanner {
  public:
    IPv6Scanner(const char* text, a_bool allow_port)
        : _text(text), _at(text), _allow_port(allow_port) {}

    a_bool accepts() {
        while (*_at != '\0') {
            if (!step()) return false;
        }
        return verdict();
    }

  private:
    static constexpr int max_colons = 7;
    static constexpr int max_group_digits = 4;
    static constexpr size_t max_embedded = 58;

    a_bool step() {
        if (*_at == ')' || *_at == ']') return close_bracket();
        if (_in_scope) return ut_is_digit(*_at) || ut_is_letter(*_at) ? advance() : false;
        switch (*_at) {
        case '(':
        case '[':
            return open_bracket();
        case ':':
            return colon();
        case '.':
            return embedded_ipv4();
        case '%':
            _in_scope = true;
            return advance();
        default:
            return group_digit();
        }
    }

    a_bool advance() {
        ++_at;
        return true;
    }

    a_bool open_bracket() {
        if (_bracket != '\0' || _group_digits > 0) return false;
        _bracket = *_at;
        return advance();
    }

    /// What follows the bracket ends the text.
    a_bool close_bracket() {
        const char opening = *_at == ')' ? '(' : '[';
        if (_bracket != opening || _colons < 2) return false;
        _closed = true;
        // Taken whole, as the loop in accepts() ends with the text.
        const char* const rest = ++_at;
        _at += std::strlen(rest);
        return *rest == '\0' || (_allow_port && *rest == ':' && is_port(rest + 1));
    }

    a_bool colon() {
        if (++_colons > max_colons) return false;
        if (_at > _text && _at[-1] == ':') {
            if (_double_colon) return false;
            _double_colon = true;
        }
        _group_digits = 0;
        _decimal_group = nullptr;
        return advance();
    }

    /// The whole group, up to what can follow it, must be an IPv4 address.
    a_bool embedded_ipv4() {
        if (_decimal_group == nullptr) return false;
        // From the first digit of the group, which has been passed as a hex digit already.
        const size_t length = std::strcspn(_decimal_group, ":%)]");
        if (length > max_embedded) return false;
        char dotted[max_embedded + 1] = {};
        std::memcpy(dotted, _decimal_group, length);
        if (!TcpUtil::IsIPv4Address(dotted, false)) return false;
        _embedded_ipv4 = true;
        _at = _decimal_group + length;
        return true;
    }

    a_bool group_digit() {
        if (!is_hex_digit(*_at)) return false;
        if (_group_digits == 0 && ut_is_digit(*_at)) _decimal_group = _at;
        return ++_group_digits <= max_group_digits && advance();
    }

    a_bool verdict() const {
        if (_bracket != '\0' && !_closed) return false;
        if (_colons == max_colons || _double_colon) return true;
        return _embedded_ipv4 && _colons == max_colons - 1;
    }

    const char* const _text;
    const char* _at;
    const a_bool _allow_port;
    const char* _decimal_group = nullptr;  // start of the current group, if that is a decimal digit
    int _colons = 0;
    int _group_digits = 0;
    char _bracket = '\0';  // as opened
    a_bool _closed = false;
    a_bool _double_colon = false;
    a_bool _in_scope = false;
    a_bool _embedded_ipv4 = false;
};

}  // namespace

namespace TcpUtil {

a_bool IsIPv4Address(const char* str, a_bool allow_port) {
    constexpr long max_part = 255;
    constexpr int wanted_dots = 3;
    if (str == nullptr || *str == '\0' || leading_number(str) > max_part) return false;
    // Each number is judged when its dot or colon is met, so that an empty one, which has no digit
    // of its own to be judged at, passes as 0.
    int dots = 0;
    a_bool in_port = false;
    for (const char* at = str; *at != '\0'; ++at) {
        if (ut_is_digit(*at)) continue;
        if (*at == '.' && !in_port) {
            if (leading_number(at + 1) > max_part) return false;
            ++dots;
        } else if (*at == ':' && allow_port && !in_port) {
            if (leading_number(at + 1) > max_port) return false;
            in_port = true;
        } else {
            return false;
        }
    }
    return dots == wanted_dots;
}

a_bool IsIPv6Address(const char* str, a_bool allow_port) {
    return str != nullptr && std::strchr(str, ':') != nullptr &&
           IPv6Scanner(str, allow_port).accepts();
}

a_bool IsIPAddress(const char* str, a_bool allow_port) {
    return IsIPv4Address(str, allow_port) || IsIPv6Address(str, allow_port);
}

uint16 GetPortNumber(const char* str) {
    if (str == nullptr) return 0;
    if (IsIPv6Address(str, true)) {
        const char* closing = std::strchr(str, ')');
        if (closing == nullptr) closing = std::strchr(str, ']');
        if (closing == nullptr) return 0;
        str = closing;
    }
    const char* port = std::strchr(str, ':');
    if (port == nullptr) return 0;
    while (is_blank(*++port)) continue;
    if (*port == '\0') return 0;
    // The same 16 bits remain whatever the width of a long is.
    const long number = leading_number(port);
    using limits = std::numeric_limits<int32>;
    return static_cast<uint16>(std::clamp<long>(number, limits::min(), limits::max()));
}

}  // namespace TcpUtil
