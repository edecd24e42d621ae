#ifndef QUOREL_UTILS_DBUTILS_DBOPTIONS_H
#define QUOREL_UTILS_DBUTILS_DBOPTIONS_H

/// Option strings: "key=value;key2='quoted value'".
///
/// Options are separated by ";"; an empty place between two separators is skipped. Blanks around a
/// key and around a value do not count. A value that starts with ' or " goes on to the same
/// quotation mark, which stands for itself when it is written twice; every other value goes on to
/// the next ";" and may be empty. A key is not empty and holds no "=" or ";".
///
/// Pointers are not null but where it says so; an empty list is null. All functions are safe on any
/// thread.

#include <cstddef>

#include "utils/etc/uttypes.h"

/// One option of a list in the order of the text. A list is freed with db_free_options.
struct a_db_option {
    a_db_option* next;  ///< null at the end
    const char* key;    ///< terminated, not empty
    const char* value;  ///< terminated, may be empty
};

/// Parses `text` (null counts as empty) into *list, null for no options. On a syntax error the
/// result is false, *list is null, and the key of the offending option, or what stands in its
/// place, is put into `bad_key` (`bad_key_len` bytes, cut and terminated) unless that is null.
/// Errors are: no "=", no key, a quotation mark that is not closed, text behind a closed one.
a_bool db_parse_options(const char* text, a_db_option** list, char* bad_key, size_t bad_key_len);

/// Frees a list; null is ignored. Values are wiped first, since passwords are among them.
void db_free_options(a_db_option* list);

/// The first option called `key` without regard to case; null when there is none.
const a_db_option* db_find_option(const a_db_option* list, const char* key);

/// Writes the list as a text that parses into the same list, values quoted where they have to be,
/// into `buf` (`len` bytes, cut and terminated). Returns the length of the whole text, so that a
/// result of `len` or more says that the buffer was too small. Every key must be one that a text
/// can hold.
size_t db_format_options(const a_db_option* list, char* buf, size_t len);

#endif
