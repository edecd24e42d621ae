#ifndef QUOREL_HOST_TEXT_H
#define QUOREL_HOST_TEXT_H

/// How the hosts read what people write.

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace host {

// Unlike those of <cctype>, these give the same answer in every locale: in a Turkish one "I" has
// another small letter than "i", and elsewhere single bytes beyond ASCII are letters.

[[nodiscard]] constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
[[nodiscard]] constexpr bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
[[nodiscard]] constexpr bool is_ascii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}
/// The lower-case letter of an ASCII letter; every other byte unchanged.
[[nodiscard]] constexpr char to_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Equality as SQL compares identifiers: ASCII letters without regard to case.
[[nodiscard]] inline bool same_name(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, to_lower, to_lower);
}

/// A setting as people write it: 1, true, on, yes, or 0, false, off, no, in small letters or
/// capitals; nothing for anything else.
[[nodiscard]] inline std::optional<bool> parse_switch(std::string_view text) {
    for (const std::string_view word : {"1", "true", "on", "yes"})
        if (same_name(word, text)) return true;
    for (const std::string_view word : {"0", "false", "off", "no"})
        if (same_name(word, text)) return false;
    return std::nullopt;
}

/// The number that `text` is from its first to its last byte, in decimal; nothing when it is none
/// or does not fit.
template <typename Number>
[[nodiscard]] std::optional<Number> parse_number(std::string_view text) {
    Number number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return number;
}

}  // namespace host

#endif
