#ifndef QUOREL_UTILS_ETC_BASE64_KERNEL_H
#define QUOREL_UTILS_ETC_BASE64_KERNEL_H

/// The inner loops of base64: whole groups of 3 bytes and 4 alphabet characters, without padding.
/// Every kernel gives the same results. None reads or writes outside the areas named.

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "utils/etc/uttypes.h"

/// A span that is read and one that is written, each shortened from the front as work is done.
struct a_base64_spans {
    const a_byte* in;
    size_t unread;
    a_byte* out;
    size_t room;

    void advance(size_t read, size_t written) {
        in += read;
        unread -= read;
        out += written;
        room -= written;
    }
    size_t groups_to_decode() const { return std::min(unread / 4, room / 3); }
};

struct a_base64_kernel {
    const char* name;

    /// Writes `groups` * 4 characters for the `groups` * 3 bytes at `src`. The areas do not
    /// overlap.
    void (*encode)(char* dst, const a_byte* src, size_t groups);

    /// Like encode for `lines` times `groups` groups, at least one, with CRLF after every line.
    void (*encode_lines)(char* dst, const a_byte* src, size_t lines, size_t groups);

    /// Decodes groups of alphabet characters and passes over CR and LF between groups, as far as
    /// both spans go, up to the first group that has anything else in it. Writes only what it
    /// decodes; `out` may be `in` or lie before it.
    void (*decode)(a_base64_spans& spans);
};

/// The kernel in use: the fastest that this processor can run.
const a_base64_kernel& base64_kernel();

/// All kernels that this processor can run, the plain one first, the fastest last, then null.
const a_base64_kernel* const* base64_usable_kernels();

/// Puts `kernel` in the place of the fastest one; null puts that back. For tests and benchmarks.
void base64_set_kernel(const a_base64_kernel* kernel);

/// Plain code, by table; the others use it for fewer groups than they take at a time.
extern const a_base64_kernel base64_plain_kernel;

/// Decodes up to `groups` groups without a line break; returns how many it did.
size_t base64_decode_run_plain(a_byte* dst, const a_byte* src, size_t groups);

/// Writes CRLF; returns where it ends.
inline char* base64_break_line(char* dst) {
    dst[0] = '\r';
    dst[1] = '\n';
    return dst + 2;
}

inline bool base64_is_line_break(a_byte c) {
    return c == '\r' || c == '\n';
}

/// Passes over a CRLF, or else over all CR and LF that follow; true if there was anything.
inline bool base64_pass_line_break(a_base64_spans& spans) {
    const size_t unread = spans.unread;
    if (unread >= 2 && std::memcmp(spans.in, "\r\n", 2) == 0) {
        spans.advance(2, 0);
        return true;
    }
    while (spans.unread != 0 && base64_is_line_break(*spans.in)) spans.advance(1, 0);
    return spans.unread != unread;
}

/// The alphabet, by 6-bit value.
inline constexpr char base64_alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The 6-bit value of each ASCII character, base64_no_value for those outside the alphabet.
inline constexpr a_byte base64_no_value = 255;
inline constexpr auto base64_values = [] {
    struct {
        a_byte of[128];
    } table = {};
    for (a_byte& value : table.of) value = base64_no_value;
    for (a_byte i = 0; i < 64; ++i) table.of[static_cast<a_byte>(base64_alphabet[i])] = i;
    return table;
}();

#endif
