#ifndef QUOREL_KOVCERT_QXCI_KIT_NAMES_H
#define QUOREL_KOVCERT_QXCI_KIT_NAMES_H

#include <algorithm>
#include <string_view>

namespace qxci {

/// The lower-case letter of an ASCII letter; every other byte unchanged. No locale has a say in it:
/// in a Turkish one an "I" is no "i".
constexpr char to_lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// True when the names differ in the case of ASCII letters at most.
constexpr bool same_name(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char one, char other) { return to_lower(one) == to_lower(other); });
}

}  // namespace qxci

#endif
