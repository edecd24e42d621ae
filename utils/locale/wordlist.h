#ifndef QUOREL_UTILS_LOCALE_WORDLIST_H
#define QUOREL_UTILS_LOCALE_WORDLIST_H

#include <cstring>

/// Whether `matches(word, length)` holds for a word of `list`, a string of words with one blank
/// between them.
template <class Predicate>
bool any_word(const char* list, Predicate matches) {
    while (*list != '\0') {
        const size_t length = std::strcspn(list, " ");
        if (matches(list, length)) return true;
        list += length;
        if (*list == ' ') ++list;
    }
    return false;
}

#endif
