#ifndef QUOREL_UTILS_ETC_BASE64_H
#define QUOREL_UTILS_ETC_BASE64_H

/// Base64 (RFC 4648, section 4) over memory and over streams. Line breaks are CRLF.
///
/// All functions may be called from any thread.

#include <cstddef>

#include "utils/etc/utstream.h"

/// Encodes `src_len` bytes at `src` into `dst`, with a line break after every `line_length`
/// characters, also at the very end if the text ends with a full line; 0 breaks no lines. Returns
/// the number of characters written, line breaks included, or (size_t)-1 when `line_length` is not
/// a multiple of 4. No terminating zero is written. The two areas must not overlap.
size_t base64_encode(char* dst, const char* src, size_t src_len, size_t line_length);

/// Decodes `src_len` characters at `src` into `dst`, which may be `src` itself. Returns the number
/// of bytes written or (size_t)-1 on malformed input: a character outside the alphabet, padding out
/// of place, or an incomplete group at the end. CR and LF are passed over wherever they are. A
/// padded group may be followed by more. Needs 3 bytes of room for every 4 alphabet characters, no
/// more than the result.
size_t base64_decode(char* dst, const char* src, size_t src_len);

// The stream forms. The streams are const so that a call can make them on the spot; they are read
// and written all the same. Between a buffered source and a buffered destination the work is done
// on whole spans. Otherwise every group of 4 characters is a read or write of its own, so put a
// UTIStreamBuffer or UTOStreamBuffer in front of an unbuffered stream.

/// Encodes `src` up to its end into `dest`, with a line break after every `line_length` characters
/// if `insert_line_breaks` says so, none after a last shorter line. A length of 0 or above 76 is
/// taken as 76. False, with nothing written, only when `line_length` is not a multiple of 4.
///
/// A source that gives 1 or 2 bytes when asked for 3 is taken to have ended with them. Whether
/// `dest` takes what it is given is not looked at.
a_bool base64_encode(const UTOStream& dest, const UTIStream& src, uint16 line_length,
                     a_bool insert_line_breaks);

/// Decodes `src` into `dest` up to the end of `src` or the first padded group, behind which `src`
/// is not read. *total_written receives the number of bytes given to `dest`, also on failure; it
/// may be null. False on malformed input as above.
a_bool base64_decode(const UTOStream& dest, const UTIStream& src, unsigned int* total_written);

#endif
