#ifndef QUOREL_UTILS_LOCALE_CSCONVERT_H
#define QUOREL_UTILS_LOCALE_CSCONVERT_H

#include <cstddef>

#include "utils/locale/charset.h"

/// Converts text from one character set to another (POSIX iconv), or passes it on as it is: when
/// the sets are the same, when one is not known (null), when US-ASCII goes into a set based on it,
/// and when the system has no conversion between the two, or no memory for one.
///
/// Threads: an object is used by one thread at a time.
class CharsetConverter {
  public:
    CharsetConverter() = default;
    ~CharsetConverter() { Close(); }
    CharsetConverter(const CharsetConverter&) = delete;
    CharsetConverter& operator=(const CharsetConverter&) = delete;

    /// Converts from `from` to `to` from now on.
    void Open(const CharsetInfo* from, const CharsetInfo* to);

    /// Passes text on as it is from now on.
    void Close();

    /// Whether Convert changes anything.
    a_bool NeedsConversion() const { return _handle != nullptr; }

    /// Converts `text` (`text_len` bytes) into `buf`, at most `len` bytes, without a terminator;
    /// returns the bytes written. Either may be null where its length is 0. What does not fit is
    /// dropped at a character's boundary (at any byte where nothing needs converting). A character
    /// that is malformed or missing in the destination becomes "?" and is counted in *lost, unless
    /// that is null; one that the end of `text` cuts in two is dropped.
    size_t Convert(const char* text, size_t text_len, char* buf, size_t len,
                   size_t* lost = nullptr);

  private:
    size_t _OffendingLength(const char* text, size_t text_len) const;

    void* _handle = nullptr;  // iconv_t; null: identity
    const CharsetInfo* _from = nullptr;
    const CharsetInfo* _to = nullptr;
};

#endif
