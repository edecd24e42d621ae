#include "utils/locale/charset.h"

#include <array>
#include <cstring>
#include <iterator>

#include "utils/etc/utascii.h"

namespace {

using LengthTable = std::array<a_byte, 256>;

struct LeadRange {
    unsigned first;
    unsigned last;
    a_byte length;
};

template <size_t N>
constexpr LengthTable lengths(const LeadRange (&ranges)[N]) {
    LengthTable table{};
    for (a_byte& entry : table) entry = 1;
    for (const LeadRange& range : ranges) {
        for (unsigned lead = range.first; lead <= range.last; ++lead) table[lead] = range.length;
    }
    return table;
}

constexpr LengthTable single_byte = lengths({{0x00, 0xFF, 1}});
constexpr LengthTable utf8 = lengths({{0xC2, 0xDF, 2}, {0xE0, 0xEF, 3}, {0xF0, 0xF4, 4}});
constexpr LengthTable utf16_unit = lengths({{0x00, 0xFF, 2}});
constexpr LengthTable shift_jis = lengths({{0x81, 0x9F, 2}, {0xE0, 0xFC, 2}});
// 0x8E introduces one half-width kana, 0x8F a character of the supplementary plane.
constexpr LengthTable euc_jp = lengths({{0x8E, 0x8E, 2}, {0x8F, 0x8F, 3}, {0xA1, 0xFE, 2}});
constexpr LengthTable euc_double = lengths({{0xA1, 0xFE, 2}});
// GB18030's four-byte characters read as two of two bytes: the lead byte cannot tell them apart.
constexpr LengthTable gbk = lengths({{0x81, 0xFE, 2}});

constexpr CharsetInfo charsets[] = {
    {1, "ISO-8859-1", "ISO-8859-1", "latin1 l1 cp819", single_byte.data()},
    {2, "ISO-8859-2", "ISO-8859-2", "latin2 l2", single_byte.data()},
    {3, "ISO-8859-3", "ISO-8859-3", "latin3 l3", single_byte.data()},
    {4, "ISO-8859-4", "ISO-8859-4", "latin4 l4", single_byte.data()},
    {5, "ISO-8859-5", "ISO-8859-5", "cyrillic", single_byte.data()},
    {6, "ISO-8859-6", "ISO-8859-6", "arabic", single_byte.data()},
    {7, "ISO-8859-7", "ISO-8859-7", "greek", single_byte.data()},
    {8, "ISO-8859-8", "ISO-8859-8", "hebrew", single_byte.data()},
    {9, "ISO-8859-9", "ISO-8859-9", "latin5 l5", single_byte.data()},
    {10, "ISO-8859-10", "ISO-8859-10", "latin6 l6", single_byte.data()},
    {11, "ISO-8859-11", "ISO-8859-11", "", single_byte.data()},
    {13, "ISO-8859-13", "ISO-8859-13", "latin7", single_byte.data()},
    {14, "ISO-8859-14", "ISO-8859-14", "latin8", single_byte.data()},
    {15, "ISO-8859-15", "ISO-8859-15", "latin9", single_byte.data()},
    {16, "ISO-8859-16", "ISO-8859-16", "latin10", single_byte.data()},
    {20, "windows-1250", "CP1250", "cp1250", single_byte.data()},
    {21, "windows-1251", "CP1251", "cp1251", single_byte.data()},
    {22, "windows-1252", "CP1252", "cp1252", single_byte.data()},
    {23, "windows-1253", "CP1253", "cp1253", single_byte.data()},
    {24, "windows-1254", "CP1254", "cp1254", single_byte.data()},
    {25, "windows-1255", "CP1255", "cp1255", single_byte.data()},
    {26, "windows-1256", "CP1256", "cp1256", single_byte.data()},
    {27, "windows-1257", "CP1257", "cp1257", single_byte.data()},
    {28, "windows-1258", "CP1258", "cp1258", single_byte.data()},
    {30, "windows-874", "CP874", "cp874", single_byte.data()},
    {31, "TIS-620", "TIS-620", "", single_byte.data()},
    {32, "KOI8-R", "KOI8-R", "", single_byte.data()},
    {33, "KOI8-U", "KOI8-U", "", single_byte.data()},
    {CHARSET_UTF8, "UTF-8", "UTF-8", "", utf8.data()},
    {CHARSET_UTF16, "UTF-16", "UTF-16LE", "utf16le", utf16_unit.data()},
    {CHARSET_US_ASCII, "US-ASCII", "ASCII", "ansix341968 iso646us ascii", single_byte.data()},
    {CHARSET_SHIFT_JIS, "Shift_JIS", "SJIS", "sjis", shift_jis.data()},
    {CHARSET_WINDOWS_31J, "Windows-31J", "CP932", "cp932 mskanji", shift_jis.data()},
    {CHARSET_EUC_JP, "EUC-JP", "EUC-JP", "ujis eucjpms", euc_jp.data()},
    {80, "GB2312", "EUC-CN", "euccn", euc_double.data()},
    {81, "GBK", "GBK", "cp936", gbk.data()},
    {82, "GB18030", "GB18030", "", gbk.data()},
    {83, "Big5", "BIG5", "", gbk.data()},
    {84, "Big5-HKSCS", "BIG5-HKSCS", "", gbk.data()},
    {85, "EUC-KR", "EUC-KR", "", euc_double.data()},
};

constexpr bool counts(char c) {
    return ut_is_letter(c) || ut_is_digit(c);
}

/// Whether the first `length` characters of `name` and all of `other` hold the same letters and
/// digits.
bool same_name(const char* name, size_t length, const char* other) {
    const char* end = name + length;
    for (;;) {
        while (name != end && !counts(*name)) ++name;
        while (*other != '\0' && !counts(*other)) ++other;
        if (name == end || *other == '\0') return name == end && *other == '\0';
        if (ut_to_lower(*name++) != ut_to_lower(*other++)) return false;
    }
}

bool is_called(const CharsetInfo& row, const char* name) {
    if (same_name(row.label, std::strlen(row.label), name)) return true;
    return ut_any_word(row.aliases, [name](const char* word, size_t length) {
        return same_name(word, length, name);
    });
}

}  // namespace

const CharsetInfo* ls_find_charset(const char* name) {
    if (name == nullptr) return nullptr;
    for (const CharsetInfo& row : charsets) {
        if (is_called(row, name)) return &row;
    }
    return nullptr;
}

const CharsetInfo* ls_find_charset_by_id(int32 id) {
    for (const CharsetInfo& row : charsets) {
        if (row.id == id) return &row;
    }
    return nullptr;
}

const CharsetInfo* ls_charset_at(uint32 index) {
    return index < std::size(charsets) ? &charsets[index] : nullptr;
}

const char* ls_japanese_part(const CharsetInfo* charset) {
    switch (charset != nullptr ? charset->id : CHARSET_UTF8) {
    case CHARSET_SHIFT_JIS:
    case CHARSET_WINDOWS_31J:
        return "_sjis";
    case CHARSET_EUC_JP:
        return "_eucjp";
    default:
        return "_utf8";
    }
}
