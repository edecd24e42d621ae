#include "utils/locale/utlocale.h"

#include <clocale>
#include <cstdlib>

#include <gmock/gmock.h>

namespace {

/// Runs with the given locale variables; an empty one counts as unset.
struct Environment {
    Environment(const char* all, const char* ctype, const char* messages, const char* lang) {
        setenv("LC_ALL", all, 1);
        setenv("LC_CTYPE", ctype, 1);
        setenv("LC_MESSAGES", messages, 1);
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
        const char *all, *ctype, *messages, *lang, *charset, *language;
    } rows[] = {
        {"", "", "", "", "US-ASCII", "en"},
        {"", "", "", "xx_XX.ISO-8859-2", "ISO-8859-2", "en"},
        {"", "fr_XX.KOI8-R@euro", "it_XX.UTF-8", "ja_JP.eucJP", "KOI8-R", "it"},
        {"es_XX.CP1252", "fr_XX.UTF-8", "fr_XX.UTF-8", "", "windows-1252", "es"},
        {"de_XX.longer-than-the-name-of-any-character-set", "", "", "", "US-ASCII", "de"},
    };
    for (const auto& row : rows) {
        const Environment environment(row.all, row.ctype, row.messages, row.lang);
        EXPECT_STREQ(row.charset, label_of(ls_detect_charset()));
        EXPECT_STREQ(row.language, ls_detect_language()->iso_label);
        EXPECT_STREQ("C", std::setlocale(LC_ALL, nullptr)) << "the process's locale was changed";
    }
}
