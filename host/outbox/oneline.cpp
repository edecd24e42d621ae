#include "host/outbox/oneline.h"

#include "host/utf8.h"

namespace host::outbox {

namespace {

// Those of ISO 6429 too: terminals obey them.
bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

}  // namespace

std::string on_one_line(std::string_view text) {
    std::string line;
    while (!text.empty()) {
        const Character c = first_character(text);
        if (!c.valid)
            line += '?';
        else if (is_control(c.code))
            line += ' ';
        else
            line += text.substr(0, c.length);
        text.remove_prefix(c.length);
    }
    return line;
}

}  // namespace host::outbox
