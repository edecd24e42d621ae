#include "utils/etc/utmemstream.h"

void UTBufOStream::set_eof() {
    _length = Length();  // while the span is there
    UTBufferedOStream::set_eof();
}

UTStrOStream::UTStrOStream(char* buf, size_t size) : _start(size != 0 ? buf : nullptr) {
    if (_start == nullptr) {
        _eof = true;
        _fits = false;
        return;
    }
    set_span(reinterpret_cast<a_byte*>(_start), size - 1);
}

void UTStrOStream::make_room() {
    _fits = false;
    set_eof();
}

void UTStrOStream::set_eof() {
    if (_eof) return;
    _length = written();
    *_ptr = '\0';
    UTBufferedOStream::set_eof();
}

const char* UTStrOStream::GetString() {
    if (_start == nullptr) return "";
    if (!_eof) *_ptr = '\0';
    return _start;
}
