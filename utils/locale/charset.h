#ifndef QUOREL_UTILS_LOCALE_CHARSET_H
#define QUOREL_UTILS_LOCALE_CHARSET_H

/// The character sets the library knows by name.
///
/// Every CharsetInfo is a row of one constant table: it lives as long as the library, is never
/// changed, and two pointers are equal exactly when the character sets are. All functions here are
/// safe on any thread.

#include "utils/etc/uttypes.h"

/// Identifiers of the character sets that code asks for by name; the other rows have numbers too.
enum a_charset_id : int32 {
    CHARSET_UTF8 = 50,
    /// 16-bit little-endian units without a byte order mark; the one set that is not based on
    /// ASCII.
    CHARSET_UTF16 = 55,
    CHARSET_US_ASCII = 60,
    CHARSET_SHIFT_JIS = 70,
    CHARSET_WINDOWS_31J = 71,
    CHARSET_EUC_JP = 72,
};

struct CharsetInfo {
    int32 id;
    /// The preferred name in the IANA character set registry.
    const char* label;
    /// The name for iconv_open.
    const char* iconv_name;
    /// Further names, separated by blanks.
    const char* aliases;
    /// 256 entries: how many bytes the character has that starts with this byte, 1 to 4. A byte
    /// that starts no character counts as a character of its own.
    const a_byte* char_lengths;
};

/// The character set of that name or alias, null when `name` is null or unknown. Case, hyphens and
/// other punctuation do not count: "utf8" is "UTF-8", "ISO8859-1" is "ISO-8859-1".
const CharsetInfo* ls_find_charset(const char* name);

/// The row with that identifier, null when there is none.
const CharsetInfo* ls_find_charset_by_id(int32 id);

/// The rows in table order, for index 0 up; null past the last.
const CharsetInfo* ls_charset_at(uint32 index);

/// The character-set part in the names of files that hold Japanese text, made for readers that use
/// `charset` (null: unknown): "_sjis", "_eucjp" or "_utf8".
const char* ls_japanese_part(const CharsetInfo* charset);

#endif
