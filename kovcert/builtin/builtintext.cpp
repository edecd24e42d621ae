#include "kovcert/builtin/builtintext.h"

#include <cstring>

#include "utils/etc/utascii.h"

namespace {

bool is_listed(const char* name, const char* const* known) {
    for (; *known != nullptr; ++known) {
        if (ut_equal_nocase(name, *known)) return true;
    }
    return false;
}

/// The value of a hex digit, 16 for anything else.
unsigned digit_value(char digit) {
    const char letter = ut_to_lower(digit);
    if (ut_is_digit(digit)) return static_cast<unsigned>(digit - '0');
    if (letter >= 'a' && letter <= 'f') return static_cast<unsigned>(letter - 'a' + 10);
    return 16;
}

}  // namespace

const char* find_option(a_qxci_user_option* options, const char* name) {
    for (; options != nullptr; options = options->next) {
        if (options->opt_name == nullptr || !ut_equal_nocase(options->opt_name, name)) continue;
        options->used = true;
        return options->opt_value == nullptr ? "" : options->opt_value;
    }
    return nullptr;
}

const char* find_unknown_option(const a_qxci_user_option* options, const char* const* known) {
    for (; options != nullptr; options = options->next) {
        const char* const name = options->opt_name == nullptr ? "" : options->opt_name;
        if (!is_listed(name, known)) return name;
    }
    return nullptr;
}

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
