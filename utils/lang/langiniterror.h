#ifndef QUOREL_UTILS_LANG_LANGINITERROR_H
#define QUOREL_UTILS_LANG_LANGINITERROR_H

/// How opening the resource files went, and what to say about it when no resource file is there.

#include <cstddef>

#include "utils/etc/uttypes.h"
#include "utils/locale/charset.h"
#include "utils/locale/language.h"

enum ls_init_return : uint32 {
    LS_INIT_ERROR = 0,
    LS_INIT_BAD_VERSION = 1,
    LS_INIT_OKAY = 2,
    LS_INIT_CANT_FIND_FILE = 3,
    LS_INIT_PARSING_ERROR = 4,
    LS_INIT_CANT_FIND_IQ_FILE = 5,
    LS_INIT_IQ_ERROR = 6,
};

/// Puts the text for `code` about the file `file_name` into `buf`, at most `len` - 1 bytes,
/// terminated, and returns its length. Texts in other languages than English are followed by the
/// English one where they fit whole, and left out when `charset` (null: UTF-8) cannot show them.
/// LS_INIT_OKAY and unknown codes give an empty text. `language` and `file_name` are not null. Safe
/// on any thread.
size_t ls_init_error_text(ls_init_return code, const LanguageInfo* language,
                          const CharsetInfo* charset, const char* file_name, char* buf, size_t len);

#endif
