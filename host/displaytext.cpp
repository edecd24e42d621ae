#include "host/displaytext.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "host/utf8.h"

namespace host {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

constexpr Range hidden[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},       {0x61C, 0x61C},
    {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},   {0x2060, 0x206F},
    {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
};

// A byte that is no character has no code: it is shown itself.
void append_escape(std::string& out, const Character& c, char byte) {
    constexpr std::string_view named = "\n\t\r";
    const std::size_t which = c.length == 1 ? named.find(byte) : std::string_view::npos;
    if (which != std::string_view::npos) {
        out += '\\';
        out += "ntr"[which];
        return;
    }
    std::array<char, 12> hex{};
    if (c.length == 1)
        snprintf(hex.data(), hex.size(), "\\x%02x",
                 static_cast<unsigned>(static_cast<unsigned char>(byte)));
    else
        snprintf(hex.data(), hex.size(), c.code > 0xFFFF ? "\\U%08x" : "\\u%04x",
                 static_cast<unsigned>(c.code));
    out += hex.data();
}

}  // namespace

bool is_hidden(char32_t code) {
    return std::any_of(std::begin(hidden), std::end(hidden), [code](const Range& range) {
        return range.first <= code && code <= range.last;
    });
}

std::string display_text(std::string_view text, std::string_view kept) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const Character c = first_character(text);
        const bool shown = c.valid && !is_hidden(c.code);
        if (shown || (c.length == 1 && kept.find(text[0]) != std::string_view::npos))
            out += text.substr(0, c.length);
        else
            append_escape(out, c, text[0]);
        text.remove_prefix(c.length);
    }
    return out;
}

}  // namespace host
