#include "utils/locale/charset.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "utils/locale/csconvert.h"
#include "utils/locale/language.h"

namespace {

std::string converted(const char* from, const char* to, const std::string& text, size_t len = 64,
                      size_t* lost = nullptr) {
    CharsetConverter converter;
    converter.Open(ls_find_charset(from), ls_find_charset(to));
    std::string out(len, '#');
    out.resize(converter.Convert(text.data(), text.size(), out.data(), len, lost));
    return out;
}

const char* label_of(const CharsetInfo* charset) {
    return charset != nullptr ? charset->label : nullptr;
}

bool converts(const CharsetInfo* from, const CharsetInfo* to) {
    CharsetConverter converter;
    converter.Open(from, to);
    return converter.NeedsConversion();
}

}  // namespace

TEST(Charset, every_row_is_found_by_its_names_and_known_to_iconv) {
    std::set<int32> ids;
    const CharsetInfo* row = nullptr;
    for (uint32 i = 0; (row = ls_charset_at(i)) != nullptr; ++i) {
        SCOPED_TRACE(row->label);
        EXPECT_TRUE(ids.insert(row->id).second);
        EXPECT_EQ(ls_find_charset(row->label), row);
        EXPECT_EQ(ls_find_charset(row->iconv_name), row);
        EXPECT_EQ(ls_find_charset_by_id(row->id), row);
        EXPECT_EQ(converts(row, ls_find_charset("UTF-8")),
                  row->id != CHARSET_UTF8 && row->id != CHARSET_US_ASCII);
        const auto* lengths = row->char_lengths;
        EXPECT_TRUE(row->id == CHARSET_UTF16 || std::count(lengths, lengths + 128, 1) == 128);
    }
    EXPECT_GT(ids.size(), 30U);
    EXPECT_EQ(ls_find_charset("UTF-16")->id, 55);
}

TEST(Names, are_compared_without_case_and_punctuation) {
    const std::pair<const char*, std::vector<const char*>> charsets[] = {
        {"UTF-8", {"utf8"}},
        {"ISO-8859-1", {"ISO8859-1", "iso_8859_1", "Latin-1"}},
        {"windows-1252", {"CP1252"}},
        {"US-ASCII", {"ANSI_X3.4-1968"}},
        {"EUC-JP", {"eucJP"}},
        {nullptr, {nullptr, "", "windows932", "ISO-8859", "UTF-80", "latin1 l1"}},
    };
    for (const auto& [label, names] : charsets) {
        for (const char* name : names) EXPECT_STREQ(label_of(ls_find_charset(name)), label);
    }
    const std::pair<const char*, std::vector<const char*>> languages[] = {
        {"de", {"de", "DE_ch.UTF-8@euro", "german"}},
        {"zh", {"zh", "zh_CN.GB18030"}},
        {"zh-Hant", {"zh_TW.Big5", "zh-hant"}},
        {nullptr, {nullptr, "", "d", "deu", "C", "C.UTF-8", "POSIX"}},
    };
    for (const auto& [label, names] : languages) {
        for (const char* name : names) {
            const LanguageInfo* found = ls_find_language(name);
            EXPECT_STREQ(found != nullptr ? found->iso_label : nullptr, label);
        }
    }
}

TEST(Charset, lead_bytes_tell_the_length_of_a_character) {
    for (const auto& [label, character] : {std::pair{"UTF-8", "\xE2\x82\xAC"},
                                           {"UTF-8", "\xF0\x9F\x98\x80"},
                                           {"Shift_JIS", "\xB1"},
                                           {"Shift_JIS", "\x83\x65"},
                                           {"EUC-JP", "\xA5\xC6"},
                                           {"EUC-JP", "\x8F\xB0\xA1"},
                                           {"GBK", "\x81\x40"},
                                           {"ISO-8859-1", "\xE9"},
                                           {"UTF-16", "\xAC\x20"}}) {
        const a_byte lead = static_cast<a_byte>(character[0]);
        EXPECT_EQ(ls_find_charset(label)->char_lengths[lead], std::strlen(character)) << label;
    }
}

TEST(Charset, japanese_files_are_named_after_the_readers_character_set) {
    for (const auto& [label, part] : {std::pair{"Shift_JIS", "_sjis"},
                                      {"Windows-31J", "_sjis"},
                                      {"EUC-JP", "_eucjp"},
                                      {"ISO-8859-1", "_utf8"},
                                      {"", "_utf8"}}) {
        EXPECT_STREQ(ls_japanese_part(ls_find_charset(label)), part);
    }
}

TEST(CharsetConverter, converts_between_character_sets) {
    const struct {
        const char *from, *to;
        std::string text, result;
        size_t lost;
    } rows[] = {
        {"UTF-8", "ISO-8859-1", "\xC3\xA9t\xC3\xA9", "\xE9t\xE9", 0},
        {"ISO-8859-15", "UTF-8", "\xA4", "\xE2\x82\xAC", 0},
        {"UTF-8", "windows-1252", "\xE2\x82\xAC", "\x80", 0},
        {"UTF-8", "UTF-16", "\xF0\x9F\x98\x80", std::string("\x3D\xD8\x00\xDE", 4), 0},
        {"UTF-16", "UTF-8", std::string("\x3D\xD8\x00\xDE", 4), "\xF0\x9F\x98\x80", 0},
        // What has no place in the destination is one question mark a character.
        {"UTF-8", "US-ASCII", "a\xE2\x82\xAC\xC3\xA9z", "a??z", 2},
        {"UTF-16", "ISO-8859-1", std::string("\x3D\xD8\x00\xDE!\0\xAC\x20", 8), "?!?", 2},
        {"Shift_JIS", "ISO-8859-1", "\x83\x65z", "?z", 1},
        // So is what is malformed, and what follows it is not lost.
        {"UTF-8", "ISO-8859-1", "\xC3(\xE2\x82z\xFFz", "?(?z?z", 3},
        {"UTF-16", "UTF-8", std::string("\x00\xDE!\0", 4), "?!", 1},
        // A letter that the converter holds back, lest an accent follows, is not lost.
        {"windows-1255", "UTF-8", "a\xF9", "a\u05E9", 0},
        {"windows-1255", "UTF-8", "\xF9\xFF!", "\u05E9?!", 1},
        {"UTF-8", "Big5-HKSCS", "\u00EA", "\x88\xA7", 0},
        // A character cut in two at the end is dropped.
        {"UTF-8", "ISO-8859-1", "a\xE2\x82", "a", 0},
        {"UTF-16", "UTF-8", std::string("a\0b", 3), "a", 0},
    };
    for (const auto& row : rows) {
        size_t lost = 0;
        EXPECT_EQ(converted(row.from, row.to, row.text, 64, &lost), row.result)
            << row.from << row.to;
        EXPECT_EQ(lost, row.lost) << row.from << row.to;
    }
    for (size_t len = 0; len <= 6; ++len) {  // what does not fit goes as a whole
        EXPECT_EQ(converted("ISO-8859-1", "UTF-8", "\xE9\xE9\xE9", len).size(), len / 2 * 2);
        EXPECT_EQ(converted("UTF-8", "UTF-16", "\xFF\xFF\xFF", len).size(), len / 2 * 2);
    }
}

TEST(CharsetConverter, passes_text_on_where_nothing_can_or_need_be_done) {
    const CharsetInfo *utf8 = ls_find_charset("UTF-8"), *ascii = ls_find_charset("US-ASCII");
    const CharsetInfo unheard_of{999, "none", "no-such-set", "", utf8->char_lengths};
    for (const CharsetInfo* from :
         {utf8, static_cast<const CharsetInfo*>(nullptr), ascii, &unheard_of}) {
        EXPECT_FALSE(converts(from, utf8));
    }
    EXPECT_FALSE(converts(utf8, nullptr));
    EXPECT_TRUE(converts(ascii, ls_find_charset("UTF-16")));
    EXPECT_EQ(converted("UTF-8", "UTF-8", "\xC3\xA9\xFF", 2), "\xC3\xA9");
}
