#include "kovcert/tlsreadbuffer.h"

#include <algorithm>
#include <cstring>

// A byte more than the data, so that no bytes are an allocation too.
TlsReadBuffer::TlsReadBuffer(const char* data, size_t len)
    : _buf(static_cast<char*>(ut_malloc(len + 1))), _cur(_buf), _curlen(_buf != nullptr ? len : 0),
      _len(_curlen) {
    if (_len != 0) std::memcpy(_buf, data, _len);
}

TlsReadBuffer::~TlsReadBuffer() {
    _heap.Free(_buf);
}

size_t TlsReadBuffer::read(char* dst, size_t n) {
    const size_t count = std::min(n, _curlen);
    if (count == 0) return 0;
    std::memcpy(dst, _cur, count);
    _cur += count;
    _curlen -= count;
    return count;
}
