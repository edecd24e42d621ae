#include "utils/etc/utstreamcounter.h"

size_t UTIStreamCounter::do_get(a_byte* buf, size_t n) {
    if (_eof) return 0;
    const size_t got = _istream.get(buf, n);
    _count += got;
    if (_istream.eof()) set_eof();
    return got;
}

UTBufferedIStreamCounter::UTBufferedIStreamCounter(UTBufferedIStream& istream) : _istream(istream) {
    share_span();
}

void UTBufferedIStreamCounter::set_eof() {
    if (_eof) return;
    give_back();
    _count -= unread();  // what nobody reads any more was never read
    UTBufferedIStream::set_eof();
}

void UTBufferedIStreamCounter::refill() {
    give_back();
    if (!_istream.eof()) _istream.refill();
    share_span();
}

void UTBufferedIStreamCounter::share_span() {
    if (_istream.eof()) return set_eof();
    set_span(_istream.ptr(), _istream.unread());
    // In advance, less what is left in count(): get() copies from a span without a call here.
    _count += unread();
}

void UTBufferedIStreamCounter::give_back() {
    if (!_eof && !_istream.eof()) _istream.consume(static_cast<size_t>(_ptr - _istream.ptr()));
}

size_t UTOStreamCounter::do_put(const a_byte* data, size_t n) {
    if (_eof) return 0;
    const size_t result = _dest.put(data, n);
    if (result <= n) _count += result;  // (size_t)-1 is a failure
    if (_dest.eof()) set_eof();
    return result;
}

UTBufferedOStreamCounter::UTBufferedOStreamCounter(UTBufferedOStream& dest) : _dest(dest) {
    share_span();
}

void UTBufferedOStreamCounter::set_eof() {
    if (_eof) return;
    hand_over();
    _count -= room();
    UTBufferedOStream::set_eof();
}

void UTBufferedOStreamCounter::make_room() {
    hand_over();
    _count -= room();
    set_span(nullptr, 0);
    if (!_dest.eof()) _dest.make_room();
    share_span();
}

void UTBufferedOStreamCounter::share_span() {
    if (_dest.eof()) return set_eof();
    set_span(_dest.ptr(), _dest.room());
    _count += room();
}

void UTBufferedOStreamCounter::hand_over() {
    if (!_eof && !_dest.eof()) _dest.commit(static_cast<size_t>(_ptr - _dest.ptr()));
}
