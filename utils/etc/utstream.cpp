#include "utils/etc/utstream.h"

#include <algorithm>

namespace {

constexpr size_t scratch_size = 4096;
constexpr size_t small_scratch_size = 1024;

// A read that gives nothing ends the input.
size_t get_or_end(UTIStream& in, a_byte* buf, size_t n) {
    const size_t got = in.get(buf, n);
    if (got == 0) in.set_eof();
    return got;
}

// What a do_put() result says about `offered` bytes: (size_t)-1 is a failure, nothing was taken.
size_t accepted(size_t result, size_t offered) {
    return result > offered ? 0 : result;
}

size_t copy_to_unbuffered(UTIStream& in, UTOStream& out) {
    a_byte scratch[small_scratch_size];
    size_t copied = 0;
    while (!in.eof() && !out.eof()) {
        const size_t got = get_or_end(in, scratch, sizeof scratch);
        if (got == 0) break;
        copied += accepted(out.put(scratch, got), got);
    }
    return copied;
}

size_t copy_to_span(UTIStream& in, UTBufferedOStream& out) {
    size_t copied = 0;
    while (!in.eof() && !out.eof()) {
        size_t room = 0;
        a_byte* space = out.get_space(&room);
        if (room == 0) {
            out.make_room();
            continue;
        }
        const size_t got = get_or_end(in, space, room);
        out.commit(got);
        copied += got;
    }
    return copied;
}

}  // namespace

size_t UTIStream::skip(size_t n) {
    a_byte scratch[scratch_size];
    size_t left = n;
    while (left != 0 && !_eof) {
        const size_t chunk = std::min(left, sizeof scratch);
        do_get(scratch, chunk);
        left -= chunk;  // whatever came: see the header
    }
    return n - left;
}

size_t UTIStream::append_to(UTOStream& out, size_t n) {
    a_byte scratch[scratch_size];
    size_t left = n;
    while (left != 0 && !_eof && !out.eof()) {
        const size_t got = get_or_end(*this, scratch, std::min(left, sizeof scratch));
        if (got == 0) break;
        left -= accepted(out.put(scratch, got), got);
    }
    return n - left;
}

size_t UTIStream::safe_append_to(UTOStream& out) {
    if (out.is_buffered()) return copy_to_span(*this, static_cast<UTBufferedOStream&>(out));
    return copy_to_unbuffered(*this, out);
}

void UTIStream::set_eof() {
    _eof = true;
}

UTSeekable* UTIStream::get_seekable() {
    return nullptr;
}

void UTOStream::set_eof() {
    _eof = true;
}

// True when the span holds a byte, after a refill if need be.
a_bool UTBufferedIStream::has_more() {
    if (_ptr == _lim && !_eof) refill();
    return _ptr != _lim;
}

size_t UTBufferedIStream::skip(size_t n) {
    size_t left = n;
    while (left > unread()) {
        if (_eof) return n - left;
        left -= unread();
        _ptr = _lim;
        refill();
    }
    consume(left);
    return n;
}

size_t UTBufferedIStream::append_to(UTOStream& out, size_t n) {
    size_t left = n;
    while (left != 0 && !out.eof() && has_more()) {
        const size_t chunk = std::min(left, unread());
        const size_t taken = accepted(out.put(_ptr, chunk), chunk);
        // All of it, also what `out` refuses: an unbuffered input has lost it by then, too.
        consume(chunk);
        left -= taken;
    }
    return n - left;
}

void UTBufferedIStream::set_eof() {
    _eof = true;
    _ptr = _lim = nullptr;
}

// Kept: a read that goes beyond the span and ends exactly with a later one refills once more before
// it returns, so that end of stream shows at once.
size_t UTBufferedIStream::do_get(a_byte* buf, size_t n) {
    if (n <= unread()) return copy_out(buf, n);
    if (_eof) return 0;

    size_t done = 0;
    for (;;) {
        // Not >=: a span that ends with the read is used up and followed by the refill.
        if (unread() > n - done) return done + copy_out(buf + done, n - done);
        done += copy_out(buf + done, unread());
        refill();
        if (_eof) return done;
    }
}

int UTBufferedIStream::compare(UTBufferedIStream& other) {
    if (this == &other) return 0;
    for (;;) {
        const bool more = has_more();
        const bool other_more = other.has_more();
        if (!more || !other_more) return static_cast<int>(more) - static_cast<int>(other_more);
        const size_t chunk = std::min(unread(), other.unread());
        const int order = std::memcmp(_ptr, other._ptr, chunk);
        consume(chunk);
        other.consume(chunk);
        if (order != 0) return order;
    }
}

void UTBufferedOStream::set_eof() {
    _eof = true;
    _ptr = _lim = nullptr;
}

size_t UTBufferedOStream::do_put(const a_byte* data, size_t n) {
    size_t done = 0;
    // A full span stays as it is until the next byte comes: nobody may want one.
    while (n - done > room()) {
        if (_eof) return done;
        const size_t chunk = room();
        copy_in(data + done, chunk);
        done += chunk;
        make_room();
    }
    copy_in(data + done, n - done);
    return n;
}

UTPartialBufferedIStream::UTPartialBufferedIStream(UTHeap* heap)
    : _heap(heap), _data(static_cast<a_byte*>(ut_malloc(_data_size))), _ptr(_data), _lim(_data),
      _skip(0) {
    _eof = _data == nullptr;
}

UTPartialBufferedIStream::~UTPartialBufferedIStream() {
    ut_free(_data);
}

size_t UTPartialBufferedIStream::skip(size_t n) {
    const size_t wanted = n + _skip;
    const auto held = static_cast<size_t>(_lim - _ptr);
    _ptr = _lim;
    _skip = wanted < held ? held - wanted : 0;
    return wanted < held ? held : wanted;
}

size_t UTPartialBufferedIStream::do_get(a_byte* buf, size_t n) {
    for (;;) {
        if (_eof) return 0;
        if (_ptr == _lim) refill();
        if (_ptr == _lim) return 0;
        if (_skip == 0) break;
        skip(_skip);
    }
    const size_t count = std::min(n, static_cast<size_t>(_lim - _ptr));
    std::memcpy(buf, _ptr, count);
    _ptr += count;
    return count;
}

size_t UTPartialBufferedIStream::get_held_line(char* buf, size_t n) {
    if (_eof || _skip != 0 || _ptr == _lim) return 0;
    const size_t most = std::min(n, static_cast<size_t>(_lim - _ptr));
    const void* const end = std::memchr(_ptr, '\n', most);
    const size_t count =
        end != nullptr ? static_cast<size_t>(static_cast<const a_byte*>(end) - _ptr) + 1 : most;
    std::memcpy(buf, _ptr, count);
    _ptr += count;
    return count;
}
