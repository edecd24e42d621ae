#ifndef QUOREL_NETLIB_SMTPBUFFER_H
#define QUOREL_NETLIB_SMTPBUFFER_H

#include <cstddef>
#include <initializer_list>

#include "utils/etc/uttypes.h"
#include "utils/utmem/utmem.h"

/// A growable text, in which every command line and message is built. Used by one thread at a time.
///
/// The first text gets exactly the bytes it needs. When more is appended and does not fit, the
/// capacity becomes ((needed length) * 3 + 3) / 2, so that a text built from n pieces is copied a
/// logarithmic number of times. A piece for which there is no memory is dropped, and the text stays
/// as it was. The buffer remembers that: whoever sends or hands on the text asks is_whole() first.
class Buffer {
  public:
    Buffer() = default;
    ~Buffer() { _heap.Free(_str); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    /// Replaces the text, which is whole again if there is memory for it; null makes it empty. The
    /// capacity never shrinks.
    void assign(const char* text);
    /// Adds `text` at the end; null changes nothing.
    void append(const char* text);
    void append_all(std::initializer_list<const char*> texts);

    /// Makes room for a text of `length`, so that it can be built in one allocation. Without memory
    /// for it the text counts as not whole.
    void expect(size_t length);

    /// False once a piece was dropped.
    a_bool is_whole() const { return _whole; }
    size_t length() const { return _size; }  // without the terminator
    size_t capacity() const { return _capacity; }
    /// The terminated text; null until something was appended.
    const char* c_str() const { return _str; }

    /// Hands the text over, to be freed with ut_free(), or null when it is not whole; the buffer is
    /// then as new.
    char* release();
    /// Overwrites and drops the text: for credentials.
    void wipe();

  private:
    a_bool reserve(size_t capacity);

    char* _str = nullptr;  // owned
    size_t _size = 0;
    size_t _capacity = 0;
    UTHeap _heap;
    a_bool _whole = true;
};

#endif
