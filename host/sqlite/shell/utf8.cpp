#include "host/sqlite/shell/utf8.h"

#include <algorithm>
#include <iterator>

namespace host {

namespace {

constexpr Character not_utf8 = {0, 1, false};

struct Range {
    char32_t first;
    char32_t last;
};

constexpr Range hidden[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},       {0x61C, 0x61C},
    {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},   {0x2060, 0x206F},
    {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
};

}  // namespace

Character first_character(std::string_view text) {
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(0);
    if (lead < 0x80) return {lead, 1, true};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    char32_t code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) return not_utf8;
        code = code << 6 | (byte(i) & 0x3FU);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (lead < 0xC2 || code < smallest[length] || code > 0x10FFFF || surrogate) return not_utf8;
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

bool is_hidden(char32_t code) {
    return std::any_of(std::begin(hidden), std::end(hidden), [code](const Range& range) {
        return range.first <= code && code <= range.last;
    });
}

}  // namespace host
