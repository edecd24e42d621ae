#ifndef QUOREL_UTILS_ETC_UTSNPRINTF_H
#define QUOREL_UTILS_ETC_UTSNPRINTF_H

#include <cstddef>

/// Formats like snprintf(3) into `buffer`, but returns the number of characters that are in the
/// buffer, terminator not counted: output that does not fit is cut without notice, so the result is
/// at most size - 1. The buffer is always terminated when size is not 0; with size 0 nothing is
/// touched and the result is 0. A format that the C library refuses gives an empty string.
__attribute__((format(printf, 3, 4))) std::size_t ut_snprintf(char* buffer, std::size_t size,
                                                              const char* format, ...);

#endif
