#ifndef QUOREL_KOVCERT_TLSREADBUFFER_H
#define QUOREL_KOVCERT_TLSREADBUFFER_H

#include <cstddef>

#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"
#include "utils/utmem/utmem.h"

/// One piece of raw bytes that a TLS connection was given ahead of the provider's asking, read from
/// its start to its end. Made with new (std::nothrow), it reports a lack of memory; see is_valid().
/// One thread at a time uses it.
class TlsReadBuffer final : public c_utils_link {
  public:
    /// Copies the `len` bytes at `data`.
    TlsReadBuffer(const char* data, size_t len);
    ~TlsReadBuffer() override;
    TlsReadBuffer(const TlsReadBuffer&) = delete;
    TlsReadBuffer& operator=(const TlsReadBuffer&) = delete;

    /// False when there was no memory for the copy; there is then nothing to read.
    a_bool is_valid() const { return _buf != nullptr; }

    /// Copies up to `n` of the bytes not yet read to `dst`; returns how many.
    size_t read(char* dst, size_t n);
    a_bool finished() const { return _curlen == 0; }

  private:
    UTHeap _heap;
    char* _buf;        // owned
    const char* _cur;  // next byte to hand out
    size_t _curlen;    // bytes not yet handed out
    size_t _len;       // bytes stored
};

using TlsReadBuffer_list = c_utils_list<TlsReadBuffer>;

#endif
