#include "kovcert/builtin/builtinhex.h"

#include <cstring>

#include "utils/etc/utascii.h"

namespace {

/// The value of a hex digit, 16 for anything else.
unsigned digit_value(char digit) {
    const char letter = ut_to_lower(digit);
    if (ut_is_digit(digit)) return static_cast<unsigned>(digit - '0');
    if (letter >= 'a' && letter <= 'f') return static_cast<unsigned>(letter - 'a' + 10);
    return 16;
}

}  // namespace

bool parse_hex(const char* text, a_qxci_byte* bytes, size_t len) {
    if (std::strlen(text) != 2 * len) return false;
    for (size_t i = 0; i < len; ++i) {
        const unsigned high = digit_value(text[2 * i]), low = digit_value(text[2 * i + 1]);
        if (high > 15 || low > 15) return false;
        bytes[i] = static_cast<a_qxci_byte>(16 * high + low);
    }
    return true;
}

char* format_hex(char* text, const a_qxci_byte* bytes, size_t len) {
    for (size_t i = 0; i < len; ++i) {
        *text++ = "0123456789abcdef"[bytes[i] >> 4];
        *text++ = "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}
