#ifndef QUOREL_UTILS_UNIX_LOCATE_H
#define QUOREL_UTILS_UNIX_LOCATE_H

/// Finds the files that belong to the library by their bare names.
///
/// Directories are searched in this order, D being the directory of the file that this code was
/// loaded from (the library, or the program where it is linked into one), symbolic links resolved:
///
///   LOCATE_LIBRARY    D, D/../lib/quorel, D/../lib
///   LOCATE_RESOURCE   D, D/../share/quorel, D/../../share/quorel
///
/// Nothing else is: neither the current directory nor one that the environment names, so that
/// nobody but who installs the library decides what it loads. Pointers are not null but where it
/// says so.
///
/// Threads: every function may be called from any thread.

#include <cstddef>

#include "utils/etc/uttypes.h"

/// Kinds of search.
enum a_locate_kind : uint32 {
    LOCATE_LIBRARY = 1,   ///< shared libraries that are loaded at run time
    LOCATE_RESOURCE = 8,  ///< message texts and other data
};

/// A buffer of this size holds every path that the system takes.
inline constexpr size_t LOCATE_MAX_PATH = 4096;

/// Puts the full path of the first regular file called `name` into `path` (`len` bytes,
/// terminated). False, with `path` empty, when there is none, when `name` is null, empty or more
/// than a bare name (holds "/"), when the kind is unknown, or when the path does not fit.
a_bool ut_locate_file(a_locate_kind kind, const char* name, char* path, size_t len);

/// The same with `directory` as D.
a_bool ut_locate_file_from(const char* directory, a_locate_kind kind, const char* name, char* path,
                           size_t len);

/// Puts D into `directory`, terminated; false when the system does not tell or it does not fit.
a_bool ut_locate_own_directory(char* directory, size_t len);

#endif
