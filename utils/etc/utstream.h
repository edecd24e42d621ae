#ifndef QUOREL_UTILS_ETC_UTSTREAM_H
#define QUOREL_UTILS_ETC_UTSTREAM_H

/// Byte streams: the abstract bases and the three ways of buffering.
///
///   UTIStream                  input; every read is a virtual call
///   ├─ UTBufferedIStream       its unread bytes lie in a span that get() reads without a call
///   └─ UTPartialBufferedIStream  buffers what one refill brings, but never refills twice in a read
///   UTOStream                  output; every write is a virtual call
///   └─ UTBufferedOStream       has a span of free bytes that put() fills without a call
///
/// Streams over memory are in utmemstream.h, buffers for unbuffered streams in utstreambuffer.h,
/// counters in utstreamcounter.h, files in utils/unix/posixstream.h.
///
/// The rules for all of them. Counts are bytes. A short count is normal, and callers loop; a read
/// of 0 means that nothing could be read now. End of stream is a flag: once set, every further read
/// or write gives 0. No error is reported otherwise, except that file streams keep the last one. An
/// output whose other side fails may give (size_t)-1 from do_put(), which counts as nothing
/// written.
///
/// Pointers are not null, except that a count of 0 never looks at its buffer; texts given to put()
/// and << are terminated.
///
/// A stream is used by one thread at a time. Streams are not copied; an adapter borrows the stream
/// it wraps, which must outlive it.

#include <cstddef>
#include <cstring>

#include "utils/etc/uttypes.h"
#include "utils/utmem/utmem.h"

class UTBufferedIStream;
class UTOStream;
class UTSeekable;

/// A character of one to four bytes, as operator>> reads it.
struct a_mb_char {
    a_byte bytes[4];
    size_t length;  // 0: none could be read
};

/// Input.
class UTIStream {
  public:
    virtual ~UTIStream() = default;
    UTIStream(const UTIStream&) = delete;
    UTIStream& operator=(const UTIStream&) = delete;

    /// Passes over `n` bytes; returns how many, fewer only at end of stream.
    /// Kept: this unbuffered form asks for the bytes in pieces of up to 4096 and counts each piece
    /// as skipped even where the read came up short.
    virtual size_t skip(size_t n);

    /// Copies up to `n` bytes to `out`, until the end of either; returns how many `out` accepted.
    /// Bytes that `out` refuses are gone. A read that gives nothing ends this stream.
    virtual size_t append_to(UTOStream& out, size_t n);

    /// Copies everything to `out`, until the end of either, straight into its span if it has one;
    /// returns how many bytes `out` accepted. A read that gives nothing ends this stream.
    virtual size_t safe_append_to(UTOStream& out);

    /// Ends the stream. Bytes it may still hold are not read any more.
    virtual void set_eof();

    /// Null: no stream here can be positioned.
    virtual UTSeekable* get_seekable();

    /// Reads up to `n` bytes into `buf`; what get() falls back to.
    virtual size_t do_get(a_byte* buf, size_t n) = 0;

    // Read up to `n` bytes, or one, and return how many were read. Where a buffered stream's span
    // holds `n` bytes or more, this is a copy without a call.
    size_t get(a_byte* buf, size_t n);
    size_t get(char* buf, size_t n) { return get(reinterpret_cast<a_byte*>(buf), n); }
    size_t get(a_byte& byte) { return get(&byte, 1); }

    // The integer is four bytes, least significant first. The character is UTF-8; a byte that does
    // not begin one stands for itself. Both may come in any number of reads. A read that gives
    // nothing where something has come already ends the stream. What the stream's end cuts short is
    // consumed and leaves the value as it was, except that a character keeps the bytes that were
    // there.
    UTIStream& operator>>(a_byte& byte);
    UTIStream& operator>>(int32& value);
    UTIStream& operator>>(uint32& value);
    UTIStream& operator>>(a_mb_char& character);

    a_bool eof() const { return _eof; }
    operator int() const { return _eof ? 0 : 1; }  // true until the stream's end
    a_bool is_buffered() const { return _is_buffered; }

  protected:
    UTIStream() = default;

    a_bool _eof = false;

  private:
    friend class UTBufferedIStream;
    explicit UTIStream(a_bool buffered) : _is_buffered(buffered) {}

    const a_bool _is_buffered = false;  // true exactly for a UTBufferedIStream
};

/// Output.
class UTOStream {
  public:
    virtual ~UTOStream() = default;
    UTOStream(const UTOStream&) = delete;
    UTOStream& operator=(const UTOStream&) = delete;

    /// Ends the stream: nothing more is written.
    virtual void set_eof();

    /// Writes up to `n` bytes and returns how many; what put() falls back to.
    virtual size_t do_put(const a_byte* data, size_t n) = 0;

    // Write `n` bytes, a terminated string without its terminator, or one byte; return how many
    // were written. Where the bytes fit into a buffered stream's span with one byte to spare, this
    // is a copy without a call. Kept: an exact fit takes the call, unlike an exact fit in get().
    size_t put(const a_byte* data, size_t n);
    size_t put(const char* data, size_t n) { return put(reinterpret_cast<const a_byte*>(data), n); }
    size_t put(const char* text) { return put(text, std::strlen(text)); }
    size_t put(a_byte byte) { return put(&byte, 1); }

    // Bytes and characters as they are, strings without their terminator, integers as decimal text,
    // doubles as the shortest decimal text that reads back as the same value.
    UTOStream& operator<<(a_byte byte);
    UTOStream& operator<<(char character);
    UTOStream& operator<<(int32 value);
    UTOStream& operator<<(uint32 value);
    UTOStream& operator<<(uint64 value);
    UTOStream& operator<<(double value);
    UTOStream& operator<<(const char* text);

    a_bool eof() const { return _eof; }
    operator int() const { return _eof ? 0 : 1; }  // true until the stream's end
    a_bool is_buffered() const { return _is_buffered; }

  protected:
    UTOStream() = default;

    a_bool _eof = false;

  private:
    friend class UTBufferedOStream;
    explicit UTOStream(a_bool buffered) : _is_buffered(buffered) {}

    const a_bool _is_buffered = false;  // true exactly for a UTBufferedOStream
};

/// Input through a span of unread bytes, [ptr(), lim()).
class UTBufferedIStream : public UTIStream {
  public:
    size_t skip(size_t n) override;
    size_t append_to(UTOStream& out, size_t n) override;
    void set_eof() override;
    size_t do_get(a_byte* buf, size_t n) override;

    /// Called when the span is empty and the stream is not at its end: makes the span non-empty or
    /// ends the stream.
    virtual void refill() = 0;

    /// The span; its length goes to *length. Empty does not mean end of stream: refill() tells.
    const a_byte* get_piece(size_t* length) const {
        *length = unread();
        return _ptr;
    }
    const a_byte* ptr() const { return _ptr; }
    const a_byte* lim() const { return _lim; }
    size_t unread() const { return static_cast<size_t>(_lim - _ptr); }

    /// Marks the span's first `n` bytes, which it must hold, as read.
    void consume(size_t n) { _ptr += n; }

    /// Compares the rest of both streams as memcmp does, a prefix being the smaller; consumes both
    /// up to the end or a little beyond the first difference. A stream equals itself, unread.
    int compare(UTBufferedIStream& other);

  protected:
    UTBufferedIStream() : UTIStream(true) {}

    void set_span(const a_byte* start, size_t length) {
        _ptr = start;
        _lim = start + length;
    }

    const a_byte* _ptr = nullptr;
    const a_byte* _lim = nullptr;

  private:
    friend class UTIStream;
    a_bool has_more();
    size_t copy_out(a_byte* buf, size_t n);
};

/// Output through a span of free bytes, [ptr(), lim()).
class UTBufferedOStream : public UTOStream {
  public:
    void set_eof() override;
    size_t do_put(const a_byte* data, size_t n) override;

    /// Called when the span is too small and the stream is not at its end: makes free space or ends
    /// the stream.
    virtual void make_room() = 0;

    /// The span; its length goes to *length.
    a_byte* get_space(size_t* length) const {
        *length = room();
        return _ptr;
    }
    a_byte* ptr() const { return _ptr; }
    a_byte* lim() const { return _lim; }
    size_t room() const { return static_cast<size_t>(_lim - _ptr); }

    /// Marks the span's first `n` bytes as written; the caller has filled them.
    void commit(size_t n) { _ptr += n; }

  protected:
    UTBufferedOStream() : UTOStream(true) {}

    void set_span(a_byte* start, size_t length) {
        _ptr = start;
        _lim = start + length;
    }

    a_byte* _ptr = nullptr;
    a_byte* _lim = nullptr;

  private:
    friend class UTOStream;
    void copy_in(const a_byte* data, size_t n);
};

/// Input that arrives in its own good time: a read hands out what the buffer holds, or what one
/// refill brings, and never waits for more. Base of the socket and TLS input streams. is_buffered()
/// is false, so that every get() comes through do_get().
class UTPartialBufferedIStream : public UTIStream {
  public:
    ~UTPartialBufferedIStream() override;

    /// Kept: treats a short skip as the long one and the other way round. Fewer bytes than the
    /// buffer holds empty it, return how many it held and leave the difference to be skipped once
    /// more from later refills; as many or more empty it too, return `n` and leave nothing to skip.
    size_t skip(size_t n) override;

    size_t do_get(a_byte* buf, size_t n) override;

    /// Moves what the buffer holds of a line, up to and with the next line feed but at most `n`
    /// bytes, to `buf`; returns how many. Reads nothing, so 0 only means that get() has to.
    size_t get_held_line(char* buf, size_t n);

    /// Called when the buffer is empty: puts up to _data_size bytes at _data and sets _ptr and _lim
    /// round them, or ends the stream, or leaves the buffer empty where nothing has arrived yet.
    virtual void refill() = 0;

  protected:
    /// `heap` is stored for subclasses; it may be null. Without memory for the buffer the stream is
    /// at its end from the start.
    explicit UTPartialBufferedIStream(UTHeap* heap);

    static constexpr size_t _data_size = 4096;

    UTHeap* _heap;  // not owned; the buffer does not come from it
    a_byte* _data;  // owned
    a_byte* _ptr;   // next unread byte
    a_byte* _lim;   // end of the unread bytes
    size_t _skip;   // bytes still to be discarded from refills
};

inline size_t UTIStream::get(a_byte* buf, size_t n) {
    if (!_is_buffered) return do_get(buf, n);
    auto& self = static_cast<UTBufferedIStream&>(*this);
    if (n > self.unread()) return self.UTBufferedIStream::do_get(buf, n);
    return self.copy_out(buf, n);
}

inline size_t UTOStream::put(const a_byte* data, size_t n) {
    if (!_is_buffered) return do_put(data, n);
    auto& self = static_cast<UTBufferedOStream&>(*this);
    if (n >= self.room()) return do_put(data, n);
    self.copy_in(data, n);
    return n;
}

inline size_t UTBufferedIStream::copy_out(a_byte* buf, size_t n) {
    if (n != 0) std::memcpy(buf, _ptr, n);
    consume(n);
    return n;
}

inline void UTBufferedOStream::copy_in(const a_byte* data, size_t n) {
    if (n != 0) std::memcpy(_ptr, data, n);
    commit(n);
}

#endif
