#include "host/utf8.h"

#include <algorithm>

namespace host {

namespace {

constexpr Character not_utf8 = {0, 1, false};

// How long a character is that begins with this byte; 0 for a byte that begins none.
std::size_t announced_length(unsigned lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

}  // namespace

Character first_character(std::string_view text) {
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const std::size_t length = announced_length(byte(0));
    if (length == 0) return not_utf8;
    if (length == 1) return {byte(0), 1, true};
    char32_t code = byte(0) & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) return not_utf8;
        code = code << 6 | (byte(i) & 0x3FU);
    }
    // A character has one form: a longer one would get past whoever looks for the short one.
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < smallest[length] || code > 0x10FFFF || surrogate) return not_utf8;
    return {code, length, true};
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const Character c = first_character(text);
        if (!c.valid) return false;
        text.remove_prefix(c.length);
    }
    return true;
}

std::string_view without_cut_character(std::string_view text) {
    constexpr std::size_t longest = 4;
    for (std::size_t back = 1; back < std::min(longest, text.size() + 1); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if ((byte & 0xC0U) == 0x80) continue;  // a later byte of a character
        if (announced_length(byte) > back) text.remove_suffix(back);
        break;
    }
    return text;
}

}  // namespace host
