#include "utils/locale/utlocale.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include <langinfo.h>
#include <locale.h>
#include <pthread.h>

namespace {

/// What the environment names for a category; null when it names nothing.
const char* environment_locale(const char* category) {
    for (const char* variable : {"LC_ALL", category, "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return value;
    }
    return nullptr;
}

/// The character set of the environment's locale, as far as that locale is installed.
const CharsetInfo* installed_charset() {
    const locale_t installed = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (installed == nullptr) return nullptr;
    const CharsetInfo* charset = ls_find_charset(nl_langinfo_l(CODESET, installed));
    freelocale(installed);
    return charset;
}

/// The character set that a locale's name spells out: "UTF-8" in "de_DE.UTF-8@euro".
const CharsetInfo* charset_in_name(const char* locale) {
    const char* dot = std::strchr(locale, '.');
    if (dot == nullptr) return nullptr;
    std::array<char, 32> name{};
    const size_t length = std::strcspn(dot + 1, "@");
    if (length >= name.size()) return nullptr;
    std::memcpy(name.data(), dot + 1, length);
    return ls_find_charset(name.data());
}

struct a_os_locale {
    const CharsetInfo* charset;
    const LanguageInfo* language;
};

// Looked for once. Not a local static: the guard of one belongs to the part of the C++ run time
// that throws.
const a_os_locale& os_locale() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    static a_os_locale found;
    pthread_once(&once, [] { found = {ls_detect_charset(), ls_detect_language()}; });
    return found;
}

}  // namespace

const CharsetInfo* ls_detect_charset() {
    const CharsetInfo* ascii = ls_find_charset_by_id(CHARSET_US_ASCII);
    const char* codeset = nl_langinfo(CODESET);
    // ASCII is what a process has that never called setlocale(): then its environment tells.
    const CharsetInfo* charset = ls_find_charset(codeset);
    if (charset != ascii) return charset;
    const char* wanted = environment_locale("LC_CTYPE");
    if (wanted == nullptr) return ascii;
    if ((charset = installed_charset()) != nullptr) return charset;
    charset = charset_in_name(wanted);
    return charset != nullptr ? charset : ascii;
}

const LanguageInfo* ls_detect_language() {
    const LanguageInfo* language = ls_find_language(nl_langinfo(_NL_LOCALE_NAME(LC_MESSAGES)));
    if (language == nullptr) language = ls_find_language(environment_locale("LC_MESSAGES"));
    return language != nullptr ? language : ls_english();
}

const CharsetInfo* ls_os_charset() {
    return os_locale().charset;
}

const LanguageInfo* ls_os_language() {
    return os_locale().language;
}

const char* ls_os_charset_label() {
    const CharsetInfo* charset = ls_os_charset();
    return charset != nullptr ? charset->label : nullptr;
}

size_t LS_CharFunctions::char_length(a_byte lead) const {
    const CharsetInfo* charset = ls_os_charset();
    return charset != nullptr ? charset->char_lengths[lead] : 1;
}

const LanguageInfo* UTLocale::GetOSLanguage() const {
    return _language != nullptr ? _language : ls_os_language();
}

const CharsetInfo* UTLocale::GetOSCharset() const {
    return _charset != nullptr ? _charset : ls_os_charset();
}
