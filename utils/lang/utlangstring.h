#ifndef QUOREL_UTILS_LANG_UTLANGSTRING_H
#define QUOREL_UTILS_LANG_UTLANGSTRING_H

/// Message texts by identifier, in the reader's language and character set, with parameters.

#include <cstdarg>
#include <cstddef>

#include "utils/lang/langiniterror.h"
#include "utils/lang/utresfile.h"
#include "utils/locale/csconvert.h"
#include "utils/locale/utlocale.h"
#include "utils/unix/utptmutex.h"

/// Looks texts up in up to four resource files and formats them.
///
/// Threads: lookups and formatting may run on any number of threads at once; the conversion between
/// character sets takes turns in a critical section. Everything that changes the object (the files,
/// the character sets, Init and Fini) is done while no other thread uses it.
///
/// Pointers are not null but where it says so; string parameters of a text may be (see wlangfmt).
class UTLangStringBase {
  public:
    static constexpr size_t MAX_FILES = 4;
    /// Texts that need converting, and texts that are formatted, are cut to these many bytes.
    static constexpr size_t MAX_CONVERTED = 768;
    static constexpr size_t MAX_FORMAT = 512;

    /// `locale` outlives the object.
    explicit UTLangStringBase(const UTLocale& locale);
    UTLangStringBase(const UTLangStringBase&) = delete;
    UTLangStringBase& operator=(const UTLangStringBase&) = delete;

    /// Searches `file`, which is open, after those added before. It stays the caller's, and stays
    /// open until RemoveFiles. False when there are four already.
    a_bool AddFile(UTResFile* file);
    void RemoveFiles();

    /// The character set that texts are delivered in; null: that of the files. Text in UTF-16 ends
    /// with a terminator of 16 bits, and cannot be formatted.
    void SetCharset(const CharsetInfo* dest);
    /// The character set of string parameters; null: that of the texts.
    void SetArgCharset(const CharsetInfo* arg);

    /// Puts the text of `id` into `buf`, at most `len` - 1 bytes, terminated. Returns its length;
    /// 0, with `buf` empty, when no file has one.
    size_t GetString(uint32 id, char* buf, size_t len);

    /// Puts the text of `id` with its parameters (see wlangfmt) into `buf` in the same way; 0, with
    /// `buf` empty, when no file has one. The arguments must be those that the text takes.
    size_t FormatMiscLangStr(uint32 id, char* buf, size_t len, ...);
    size_t VFormatMiscLangStr(uint32 id, char* buf, size_t len, va_list args);

    /// The same for a given format in the texts' character set.
    size_t FormatMiscStr(char* buf, size_t len, const char* format, ...);
    size_t VFormatMiscStr(char* buf, size_t len, const char* format, va_list args);

  protected:
    const UTLocale* _locale;  // not owned
    const LanguageInfo* _langinfo = nullptr;
    const CharsetInfo* _dest_csinfo = nullptr;

  private:
    size_t do_get_string(size_t file, uint32 id, char* buf, size_t len);
    size_t _GetConverted(size_t file, uint32 id, char* buf, size_t len);
    a_bool _NeedsConversion(const CharsetConverter& converter) const;
    void _ResetConverters();
    static size_t _WriteArg(void* self, const char* parm, char* buf, size_t len);

    size_t _nres = 0;
    UTResFile* _res[MAX_FILES] = {};    // not owned, searched in order
    CharsetConverter _conv[MAX_FILES];  // from each file's character set; guarded by _section
    CharsetConverter _arg_conv;         // guarded by _section
    const CharsetInfo* _arg_csinfo = nullptr;
    UTCriticalSection _section;
};

/// The texts of one process: those of the wanted language, and English for what it lacks.
class UTLangString : public UTLangStringBase {
  public:
    /// `locale` outlives the object. `directory` is where the files are; null: the locator finds
    /// them. It is not copied.
    explicit UTLangString(const UTLocale& locale, const char* directory = nullptr);
    ~UTLangString() { Fini(); }

    /// Opens the file of the language that `language_label` names, or of the operating system's
    /// when it names none that is known, and for every language but English the English file too.
    /// Texts are delivered in `dest`; null: the operating system's character set. With `iq` set,
    /// the "_iq" variants of the files are taken.
    ///
    /// Returns LS_INIT_OKAY when one of the two files is there, also when called again. Otherwise
    /// says what is wrong with the wanted file, and nothing is open. A file is refused when its
    /// version is older than the library's texts; one without a version is taken.
    ls_init_return Init(const char* language_label, const CharsetInfo* dest, a_bool iq);

    /// Closes the files. Init may be called again.
    void Fini();

    /// Puts a text that explains `code` into `buf`, at most `len` - 1 bytes, terminated, and
    /// returns its length: in the language that Init with the same label would have taken, followed
    /// by English. It needs no file.
    size_t GetInitErrorStr(ls_init_return code, char* buf, size_t len, const char* language_label,
                           a_bool iq);

  private:
    const LanguageInfo* _Wanted(const char* language_label) const;
    a_bool _Open(UTQXResFile& file, const LanguageInfo* language, a_bool iq);
    ls_init_return _OpenFile(UTQXResFile& file, const LanguageInfo* language, a_bool iq);

    const char* _directory;         // not owned
    UTQXResFile _res_file;          // the wanted language's
    UTQXResFile _default_res_file;  // English
    a_bool _initialized = false;
};

#endif
