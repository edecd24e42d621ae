#include "utils/etc/utstreambuffer.h"

#include <algorithm>

namespace {

// A block of length 0 is null, which would end the stream as want of memory does.
size_t usable(size_t length) {
    return std::max<size_t>(length, 1);
}

a_byte* new_buffer(size_t length) {
    return static_cast<a_byte*>(ut_malloc(usable(length)));
}

}  // namespace

UTIStreamBuffer::UTIStreamBuffer(UTIStream& istream, size_t length)
    : _istream(istream), _buf(new_buffer(length)), _len(usable(length)) {
    _eof = _buf == nullptr;
}

UTIStreamBuffer::~UTIStreamBuffer() {
    ut_free(_buf);
}

void UTIStreamBuffer::refill() {
    const size_t got = _istream.get(_buf, _len);
    if (got == 0) return set_eof();
    set_span(_buf, got);
}

void UTIStreamBuffer::restart() {
    set_span(_buf, 0);
    _eof = _buf == nullptr;
}

UTOStreamBuffer::UTOStreamBuffer(UTOStream& ostream, size_t length)
    : _ostream(ostream), _buf(new_buffer(length)), _len(usable(length)) {
    _eof = _buf == nullptr;
    set_span(_buf, _eof ? 0 : _len);
}

UTOStreamBuffer::~UTOStreamBuffer() {
    flush();
    ut_free(_buf);
}

void UTOStreamBuffer::flush() {
    if (_eof || _ptr == _buf) return;
    _ostream.put(_buf, static_cast<size_t>(_ptr - _buf));
    set_span(_buf, _len);
}
