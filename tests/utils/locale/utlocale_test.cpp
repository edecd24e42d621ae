#include "utils/locale/utlocale.h"

#include <clocale>
#include <cstdlib>

#include <gmock/gmock.h>
#include <locale.h>

namespace {

/// Runs with the given locale variables; an empty one counts as unset.
struct Environment {
    Environment(const char* all, const char* category, const char* lang) {
        setenv("LC_ALL", all, 1);
        setenv("LC_CTYPE", category, 1);
        setenv("LC_MESSAGES", category, 1);
        setenv("LANG", lang, 1);
    }
    ~Environment() {
        for (const char* name : {"LC_ALL", "LC_CTYPE", "LC_MESSAGES", "LANG"}) unsetenv(name);
    }
};

const char* label_of(const CharsetInfo* charset) {
    return charset != nullptr ? charset->label : nullptr;
}

}  // namespace

TEST(Locale, the_environment_names_what_the_process_has_not_set) {
    const struct {
        const char *all, *category, *lang;
        const char *charset, *language;
    } rows[] = {
        {"", "", "", "US-ASCII", "en"},
        {"C", "", "de_DE.UTF-8", "US-ASCII", "en"},
        {"", "", "C.UTF-8", "UTF-8", "en"},
        // Locales that are not installed still say what is meant.
        {"", "", "xx_XX.ISO-8859-2", "ISO-8859-2", "en"},
        {"", "", "ja_JP.eucJP", "EUC-JP", "ja"},
        {"", "fr_XX.KOI8-R@euro", "ja_JP.eucJP", "KOI8-R", "fr"},
        {"es_XX.CP1252", "fr_XX.UTF-8", "", "windows-1252", "es"},
        {"de_XX", "", "", "US-ASCII", "de"},
        {"de_XX.no-such-set", "", "", "US-ASCII", "de"},
        {"de_XX.longer-than-the-name-of-any-character-set", "", "", "US-ASCII", "de"},
    };
    for (const auto& row : rows) {
        const Environment environment(row.all, row.category, row.lang);
        EXPECT_STREQ(label_of(ls_detect_charset()), row.charset);
        EXPECT_STREQ(ls_detect_language()->iso_label, row.language);
        EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C") << "the process's locale was changed";
    }
}

TEST(Locale, what_the_process_has_set_counts_more) {
    const Environment environment("ja_JP.eucJP", "", "");
    const locale_t utf8 = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
    ASSERT_NE(utf8, nullptr);
    const locale_t before = uselocale(utf8);
    EXPECT_STREQ(label_of(ls_detect_charset()), "UTF-8");
    uselocale(before);
    freelocale(utf8);
    EXPECT_STREQ(label_of(ls_detect_charset()), "EUC-JP");
}

TEST(Locale, the_systems_answer_stays_the_same) {
    const CharsetInfo* first = ls_os_charset();
    const LanguageInfo* language = ls_os_language();
    const Environment environment("ja_JP.eucJP", "", "");
    ls_char_functions.init();
    EXPECT_EQ(ls_os_charset(), first);
    EXPECT_STREQ(ls_os_charset_label(), label_of(first));
    EXPECT_EQ(UTLocale().GetOSCharset(), first);
    EXPECT_EQ(UTLocale().GetOSLanguage(), language);
    EXPECT_EQ(ls_char_functions.char_length('a'), 1U);
}
