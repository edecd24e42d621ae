#include "host/outbox/pgarray.h"

#include "host/utf8.h"

namespace host::outbox {

std::string storable(std::string_view text, bool ascii) {
    std::string taken;
    while (!text.empty()) {
        const Character c = first_character(text);
        const bool fits = c.valid && c.code != 0 && !(ascii && c.code > 0x7f);
        taken += fits ? text.substr(0, c.length) : "?";
        text.remove_prefix(c.length);
    }
    return taken;
}

void PgArray::_separate() {
    if (!_elements.empty()) _elements += ',';
}

void PgArray::add(std::int64_t number) {
    _separate();
    _elements += std::to_string(number);
}

void PgArray::add(std::optional<std::string_view> text) {
    _separate();
    if (!text) {
        _elements += "NULL";
        return;
    }
    _elements += '"';
    for (const char c : *text) {
        if (c == '"' || c == '\\') _elements += '\\';
        _elements += c;
    }
    _elements += '"';
}

}  // namespace host::outbox
