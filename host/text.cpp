#include "host/text.h"

#include <algorithm>
#include <iterator>

namespace host {

bool same_name(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, to_lower, to_lower);
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
