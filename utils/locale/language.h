#ifndef QUOREL_UTILS_LOCALE_LANGUAGE_H
#define QUOREL_UTILS_LOCALE_LANGUAGE_H

/// The languages the library knows by name. Rows of one constant table: they live as long as the
/// library, and two pointers are equal exactly when the languages are. Safe on any thread.

#include "utils/etc/uttypes.h"

struct LanguageInfo {
    /// ISO 639-1 code in lower case. Traditional Chinese is "zh-Hant"; "zh" is Simplified Chinese.
    const char* iso_label;
    /// Other beginnings of locale names that mean this language, separated by blanks.
    const char* aliases;
};

/// The language that `label` starts with: a label or alias of the table in any case, alone or
/// followed by a territory, character set or modifier as in locale names ("de_CH.UTF-8@euro").
/// Null when `label` is null or names no known language ("C" and "POSIX" among them).
const LanguageInfo* ls_find_language(const char* label);

/// English: what is taken when no language is asked for, and the one that every text exists in.
const LanguageInfo* ls_english();

#endif
