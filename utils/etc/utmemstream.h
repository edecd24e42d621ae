#ifndef QUOREL_UTILS_ETC_UTMEMSTREAM_H
#define QUOREL_UTILS_ETC_UTMEMSTREAM_H

/// Streams over memory of the caller's, which must outlive them.

#include "utils/etc/utstream.h"

/// Reads a block of memory, then ends.
class UTBufIStream final : public UTBufferedIStream {
  public:
    UTBufIStream(const void* data, size_t length) {
        set_span(static_cast<const a_byte*>(data), length);
    }
    void refill() override { set_eof(); }
};

/// Fills a block of memory, then ends.
class UTBufOStream final : public UTBufferedOStream {
  public:
    UTBufOStream(void* buf, size_t size) : _buf(static_cast<a_byte*>(buf)) { set_span(_buf, size); }
    void make_room() override { set_eof(); }
    void set_eof() override;

    /// Bytes written; stays after the stream's end.
    size_t Length() const { return _eof ? _length : static_cast<size_t>(_ptr - _buf); }

  private:
    a_byte* const _buf;
    size_t _length = 0;  // once ended
};

/// Writes text into a character buffer and keeps it terminated: a buffer of `size` characters takes
/// size - 1, then the stream ends. Of size 0 it is at its end from the start.
class UTStrOStream final : public UTBufferedOStream {
  public:
    UTStrOStream(char* buf, size_t size);
    void make_room() override;

    /// Terminates the text where the writing stopped and ends the stream.
    void set_eof() override;

    /// The text so far, terminated; "" for a buffer of size 0.
    const char* GetString();

    /// Characters written; stays after the stream's end.
    size_t Length() const { return _eof ? _length : written(); }

    /// False once something did not fit.
    a_bool Fits() const { return _fits; }

  private:
    size_t written() const { return static_cast<size_t>(_ptr - reinterpret_cast<a_byte*>(_start)); }

    char* const _start;
    size_t _length = 0;  // once ended
    a_bool _fits = true;
};

#endif
