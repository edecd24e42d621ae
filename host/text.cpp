#include "host/text.h"

#include <algorithm>
#include <iterator>

namespace host {

namespace {

// As in the C locale, whatever the program's is: under some an I has another small letter than i.
char small_letter(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool same_name(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return small_letter(x) == small_letter(y); });
}

std::optional<bool> parse_switch(std::string_view text) {
    constexpr std::string_view words[] = {"0", "1", "false", "true", "off", "on", "no", "yes"};
    const auto* const word =
        std::find_if(std::begin(words), std::end(words),
                     [text](std::string_view w) { return same_name(w, text); });
    if (word == std::end(words)) return std::nullopt;
    return (word - std::begin(words)) % 2 == 1;
}

}  // namespace host
