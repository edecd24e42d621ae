#ifndef QUOREL_UTILS_ETC_UTSTREAMBUFFER_H
#define QUOREL_UTILS_ETC_UTSTREAMBUFFER_H

/// Buffers in front of unbuffered streams.

#include "utils/etc/utstream.h"

/// Reads the wrapped input in blocks. A read of the wrapped input that gives nothing ends this
/// stream. What has been read ahead is gone with this object. Without memory for a block the stream
/// is at its end from the start.
class UTIStreamBuffer final : public UTBufferedIStream {
  public:
    /// `length` is the size of a block, at least 1.
    UTIStreamBuffer(UTIStream& istream, size_t length);
    ~UTIStreamBuffer() override;
    void refill() override;

    /// Whether there was memory for a block.
    a_bool has_buffer() const { return _buf != nullptr; }

    /// Forgets what was read ahead and the end that was met, for input that begins anew.
    void restart();

  private:
    UTIStream& _istream;
    a_byte* const _buf;  // owned
    const size_t _len;
};

/// Collects what is written and hands it to the wrapped output a full buffer at a time, the rest in
/// flush() and on destruction. set_eof() discards what has been collected.
/// Without memory for the buffer the stream is at its end from the start.
/// Kept: the count that the wrapped output returns is not looked at; bytes it refuses are gone, and
/// this stream does not end with it.
class UTOStreamBuffer final : public UTBufferedOStream {
  public:
    /// `length` is the size of the buffer, at least 1.
    UTOStreamBuffer(UTOStream& ostream, size_t length);
    ~UTOStreamBuffer() override;
    void make_room() override { flush(); }

    /// Whether there was memory for the buffer.
    a_bool has_buffer() const { return _buf != nullptr; }

    /// Hands over what has been collected, if anything.
    void flush();

  private:
    UTOStream& _ostream;
    a_byte* const _buf;  // owned
    const size_t _len;
};

#endif
