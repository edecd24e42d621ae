#include "utils/locale/charset.h"

#include <clocale>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include "utils/etc/utascii.h"
#include "utils/locale/csconvert.h"
#include "utils/locale/language.h"
#include "utils/locale/utlocale.h"

namespace {

static_assert(ut_equal_nocase("asIS-is", "ASis", 4) && ut_equal_nocase("asi", "ASIS", 3) &&
              ut_equal_nocase("I", "i") && ut_equal_nocase("x", "y", 0));
static_assert(!ut_equal_nocase("asi", "ASIS", 4) && !ut_equal_nocase("ab", "abc") &&
              !ut_equal_nocase("@[", "`{") && !ut_equal_nocase("\xDD", "i"));

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
        EXPECT_EQ(row, ls_find_charset(row->label));
        EXPECT_EQ(row, ls_find_charset_by_id(row->id));
        EXPECT_EQ(row->id != CHARSET_UTF8 && row->id != CHARSET_US_ASCII,
                  converts(row, ls_find_charset("UTF-8")));
    }
    EXPECT_EQ(55, ls_find_charset("UTF-16")->id);
}

TEST(Names, are_compared_without_case_and_punctuation) {
    for (const char* name : {"ISO8859-1", "iso_8859_1", "Latin-1"})
        EXPECT_STREQ("ISO-8859-1", label_of(ls_find_charset(name)));
    for (const char* none : {static_cast<const char*>(nullptr), "", "ISO-8859", "UTF-80"})
        EXPECT_EQ(nullptr, ls_find_charset(none));
    const std::pair<const char*, const char*> languages[] = {
        {"de", "DE_ch.UTF-8@euro"}, {"de", "german"}, {"zh-Hant", "zh_TW.Big5"},
        {nullptr, nullptr},         {nullptr, "deu"}, {nullptr, "C.UTF-8"}};
    for (const auto& [label, name] : languages) {
        const LanguageInfo* found = ls_find_language(name);
        EXPECT_STREQ(label, found != nullptr ? found->iso_label : nullptr);
    }
}

TEST(Charset, japanese_files_are_named_after_the_readers_character_set) {
    EXPECT_STREQ("_sjis", ls_japanese_part(ls_find_charset("Shift_JIS")));
    EXPECT_STREQ("_utf8", ls_japanese_part(nullptr));
}

TEST(CharsetConverter, converts_between_character_sets) {
    const struct {
        const char *from, *to;
        std::string text, result;
        size_t lost;
    } rows[] = {
        {"ISO-8859-15", "UTF-8", "\xA4", "\xE2\x82\xAC", 0},
        {"UTF-8", "UTF-16", "\xF0\x9F\x98\x80", std::string("\x3D\xD8\x00\xDE", 4), 0},
        // What has no place in the destination is one question mark a character.
        {"UTF-16", "ISO-8859-1", std::string("\x3D\xD8\x00\xDE!\0\xAC\x20", 8), "?!?", 2},
        // So is what is malformed, and what follows it is not lost.
        {"UTF-8", "ISO-8859-1", "\xC3(\xE2\x82z\xFFz", "?(?z?z", 3},
        {"UTF-16", "UTF-8", std::string("\x00\xDE!\0", 4), "?!", 1},
        // A letter that the converter holds back, lest an accent follows, is not lost.
        {"windows-1255", "UTF-8", "a\xF9", "a\u05E9", 0},
        {"windows-1255", "US-ASCII", "\xF9\xFFz\xF9z", "??z?z", 3},
        {"UTF-8", "ISO-8859-1", "a\xE2\x82", "a", 0},
    };
    for (const auto& row : rows) {
        size_t lost = 0;
        EXPECT_EQ(row.result, converted(row.from, row.to, row.text, 64, &lost)) << row.from;
        EXPECT_EQ(row.lost, lost) << row.from << row.to;
    }
    for (size_t len = 0; len <= 6; ++len)  // what does not fit goes as a whole
        EXPECT_EQ(len / 2 * 2, converted("ISO-8859-1", "UTF-8", "\xE9\xE9\xE9", len).size());
    EXPECT_EQ("a", converted("windows-1255", "US-ASCII", "a\xF9", 1));
}

TEST(Locale, the_environment_names_what_the_process_has_not_set) {
    const struct {
        const char *all, *ctype, *messages, *lang, *charset, *language;
    } rows[] = {
        {"", "", "", "", "US-ASCII", "en"},
        {"", "fr_XX.KOI8-R@euro", "it_XX.UTF-8", "ja_JP.eucJP", "KOI8-R", "it"},
        {"es_XX.CP1252", "fr_XX.UTF-8", "fr_XX.UTF-8", "", "windows-1252", "es"},
        {"de_XX.longer-than-the-name-of-any-character-set", "", "", "", "US-ASCII", "de"},
    };
    for (const auto& row : rows) {
        setenv("LC_ALL", row.all, 1);
        setenv("LC_CTYPE", row.ctype, 1);
        setenv("LC_MESSAGES", row.messages, 1);
        setenv("LANG", row.lang, 1);
        EXPECT_STREQ(row.charset, label_of(ls_detect_charset()));
        EXPECT_STREQ(row.language, ls_detect_language()->iso_label);
        EXPECT_STREQ("C", std::setlocale(LC_ALL, nullptr)) << "the process's locale was changed";
    }
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LC_MESSAGES", "LANG"}) unsetenv(name);
}
