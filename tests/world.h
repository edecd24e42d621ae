#ifndef QUOREL_TESTS_WORLD_H
#define QUOREL_TESTS_WORLD_H

/// Small worlds: for what reads strangers' bytes, every input up to a bound. A fault that a sample
/// misses mostly shows in something short.

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace world {

using Letters = std::vector<std::string_view>;

/// The characters of `text`, one letter each.
inline Letters letters(std::string_view text) {
    Letters all;
    for (std::size_t i = 0; i < text.size(); ++i) all.push_back(text.substr(i, 1));
    return all;
}

inline std::string quoted(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        char escape[8];
        snprintf(escape, sizeof escape, c < ' ' || c > '~' ? "\\%03o" : "%c", c & 0xFF);
        shown += escape;
    }
    return '"' + shown + '"';
}

template <typename Rule>
bool holds_behind(std::string& text, const Letters& alphabet, unsigned bound, const Rule& rule) {
    if (!rule(static_cast<const std::string&>(text))) return false;
    if (bound == 0) return true;
    const std::size_t length = text.size();
    for (const std::string_view letter : alphabet) {
        text += letter;
        if (!holds_behind(text, alphabet, bound - 1, rule)) return false;
        text.resize(length);
    }
    return true;
}

/// Whether `rule(text)` is true of every string of at most `bound` letters; says of which not.
template <typename Rule>
testing::AssertionResult holds_for_all(const Letters& alphabet, unsigned bound, const Rule& rule) {
    std::string text;
    if (holds_behind(text, alphabet, bound, rule)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "not for " << quoted(text);
}

}  // namespace world

#endif
