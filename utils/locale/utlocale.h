#ifndef QUOREL_UTILS_LOCALE_UTLOCALE_H
#define QUOREL_UTILS_LOCALE_UTLOCALE_H

/// What the operating system's locale says about text: its character set and its language.
///
/// The library lives in somebody else's process, so it only looks: it never calls setlocale. The
/// locale that the process has set counts. Where that still is the one every process starts with
/// ("C"), or says no more than that one, the locale that the environment asks for counts, since
/// most hosts never set one. In the order of POSIX.1-2008, the first of these variables that is set
/// and not empty says which it is:
///
///   character set   LC_ALL, LC_CTYPE, LANG
///   language        LC_ALL, LC_MESSAGES, LANG

#include <cstddef>

#include "utils/locale/charset.h"
#include "utils/locale/language.h"

/// Looks now. The character set is null when the system names one that the table does not have;
/// the language is English when the locale names none that is known. Not safe while another thread
/// changes the environment.
const CharsetInfo* ls_detect_charset();
const LanguageInfo* ls_detect_language();

/// The operating system's character set and language, looked for at the first call and the same
/// from then on. Safe on any thread.
const CharsetInfo* ls_os_charset();
const LanguageInfo* ls_os_language();

/// The IANA name of the operating system's character set; null when it has none.
const char* ls_os_charset_label();

/// The character functions: how text in the operating system's character set falls into characters.
/// Without state of its own; safe on any thread.
class LS_CharFunctions {
  public:
    /// Looks for the character set, so that later calls find it. Any number of times.
    void init() const { ls_os_charset(); }

    /// Bytes of the character that starts with `lead`, 1 to 4; 1 in an unknown character set.
    size_t char_length(a_byte lead) const;
};

/// The one object of its kind.
inline constexpr LS_CharFunctions ls_char_functions;

/// The locale that messages are made for: the operating system's, or one that its owner chose.
class UTLocale {
  public:
    constexpr UTLocale() = default;
    /// A null argument stands for the operating system's.
    constexpr UTLocale(const LanguageInfo* language, const CharsetInfo* charset)
        : _language(language), _charset(charset) {}

    const LanguageInfo* GetOSLanguage() const;
    const CharsetInfo* GetOSCharset() const;

  private:
    const LanguageInfo* _language = nullptr;
    const CharsetInfo* _charset = nullptr;
};

#endif
