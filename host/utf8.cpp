#include "host/utf8.h"

#include <algorithm>

namespace host {

namespace {

// How long a character is that begins with this byte; 0 for a byte that begins none.
std::size_t announced_length(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

}  // namespace

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
