#ifndef QUOREL_UTILS_LANG_WLANGFMT_H
#define QUOREL_UTILS_LANG_WLANGFMT_H

/// Puts numbered parameters into message texts.
///
/// "%N", N from 1 to 9, stands for parameter N; a suffix behind it says of what type the argument
/// is, none means a string:
///
///   !s! !at!    const char*; a null one shows as "???"
///   !c!         character
///   !d! !u!     int, unsigned int, in decimal
///   !ld! !lu!   long, unsigned long
///   !lld! !llu! 64-bit signed and unsigned
///   !4x! !8x!   unsigned int, at least 4 and 8 hexadecimal digits
///
/// "%%" is one "%"; any other "%" stands for itself. Bytes are taken as ASCII-based text.

#include <cstdarg>
#include <cstddef>

/// Writes the string parameter `parm` into `buf`, at most `len` bytes without a terminator, in the
/// character set of the message; returns the bytes written.
using a_lang_parm_writer = size_t (*)(void* context, const char* parm, char* buf, size_t len);

/// Formats `format` into `buf`: what does not fit into `len` - 1 bytes is cut, and the text is
/// terminated. Returns its length; 0, with `buf` untouched, when `len` is 0. `format` is not null.
///
/// `args` holds one argument per number from 1 to the highest that the format names, in that order
/// and of the types that the format says; a number in between that is not named takes a string. A
/// caller can thus only pass arguments to texts whose parameters it knows.
///
/// Kept: a number that comes again replaces its earlier place, which stays as it is written, so a
/// text that shows a value twice takes it as two parameters.
///
/// `write` is called for every string parameter; null copies it as it is.
size_t wlangfmt(char* buf, size_t len, const char* format, va_list args,
                a_lang_parm_writer write = nullptr, void* context = nullptr);

#endif
