#ifndef QUOREL_EXTDLL_PRINTFORMAT_H
#define QUOREL_EXTDLL_PRINTFORMAT_H

/// Formatting with a format that comes from SQL and is not trusted: only conversions of strings are
/// carried out, and only strings that were given are read.

#include <cstddef>
#include <span>

#include "utils/etc/uttypes.h"

/// Formats `values` by `format` into `buffer` of `size` bytes (not 0) as printf(3) does, cuts what
/// does not fit, and terminates. Stores the text's length in *length.
///
/// Accepted are "%%" and `%[n$][flags][width][.precision]s`, with the positions from 1 to the
/// number of values, in all conversions or in none (POSIX.1-2008, fprintf). Anything else refuses
/// the format: false, and the buffer's contents mean nothing. A value that is null is written as
/// the C library writes a null string, "(null)" where the precision leaves room for it.
a_bool format_strings(char* buffer, std::size_t size, const char* format,
                      std::span<const char* const> values, std::size_t* length);

#endif
