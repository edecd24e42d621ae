#ifndef QUOREL_UTILS_ETC_UTASCII_H
#define QUOREL_UTILS_ETC_UTASCII_H

/// Character tests on ASCII alone, whatever locale the host has set: the names that the library
/// compares are protocol words, not text, and <cctype> and strcasecmp answer differently in some
/// locales (a Turkish "I" is no "i"). Texts are not null.

#include <cstddef>
#include <cstring>

#include "utils/etc/uttypes.h"

constexpr a_bool ut_is_digit(char c) {
    return c >= '0' && c <= '9';
}
constexpr a_bool ut_is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// The lower-case letter of an ASCII letter; every other byte unchanged.
constexpr char ut_to_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

/// Whether two terminated strings are equal without regard to the case of ASCII letters, as far as
/// their first `length` characters go.
constexpr a_bool ut_equal_nocase(const char* left, const char* right,
                                 std::size_t length = static_cast<std::size_t>(-1)) {
    for (; length > 0; ++left, ++right, --length) {
        if (ut_to_lower(*left) != ut_to_lower(*right)) return false;
        if (*left == '\0') break;
    }
    return true;
}

/// Whether `matches(word, length)` holds for a word of `list`, a string of words with one blank
/// between them.
template <class Predicate>
a_bool ut_any_word(const char* list, Predicate matches) {
    while (*list != '\0') {
        const std::size_t length = std::strcspn(list, " ");
        if (matches(list, length)) return true;
        list += length;
        if (*list == ' ') ++list;
    }
    return false;
}

#endif
