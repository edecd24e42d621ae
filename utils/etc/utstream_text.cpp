#include <charconv>

#include "utils/etc/utstream.h"

// The formatted forms are apart from the rest because the number conversions behind them bring
// large tables, which only a program that uses them should carry.

namespace {

template <class Number>
void put_number(UTOStream& out, Number value) {
    char text[32];  // the longest: 24 characters of a double, 20 of an unsigned integer
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    out.put(text, static_cast<size_t>(end - text));
}

// UTF-8 (RFC 3629, section 3): how many bytes follow the first one of a character.
size_t continuation_bytes(a_byte first) {
    if (first >= 0xC2 && first <= 0xDF) return 1;
    if (first >= 0xE0 && first <= 0xEF) return 2;
    if (first >= 0xF0 && first <= 0xF4) return 3;
    return 0;
}

// Reads `n` bytes on top of the `done` that have come already, in as many reads as it takes;
// returns how many there are together. A stream that gives nothing in the middle could stay so for
// ever, and what has come cannot be given back.
size_t get_rest(UTIStream& in, a_byte* buf, size_t done, size_t n) {
    while (done < n) {
        const size_t got = in.get(buf + done, n - done);
        if (got == 0) {
            if (done != 0) in.set_eof();
            break;
        }
        done += got;
    }
    return done;
}

}  // namespace

UTIStream& UTIStream::operator>>(a_byte& byte) {
    get(byte);
    return *this;
}

UTIStream& UTIStream::operator>>(uint32& value) {
    a_byte bytes[4];
    if (get_rest(*this, bytes, 0, sizeof bytes) == sizeof bytes)
        value = uint32{bytes[0]} | uint32{bytes[1]} << 8 | uint32{bytes[2]} << 16 |
                uint32{bytes[3]} << 24;
    return *this;
}

UTIStream& UTIStream::operator>>(int32& value) {
    auto bits = static_cast<uint32>(value);
    *this >> bits;
    value = static_cast<int32>(bits);
    return *this;
}

UTIStream& UTIStream::operator>>(a_mb_char& character) {
    character.length = get(character.bytes, 1);
    if (character.length == 0) return *this;
    const size_t whole = 1 + continuation_bytes(character.bytes[0]);
    character.length = get_rest(*this, character.bytes, 1, whole);
    return *this;
}

UTOStream& UTOStream::operator<<(a_byte byte) {
    put(byte);
    return *this;
}

UTOStream& UTOStream::operator<<(char character) {
    put(&character, 1);
    return *this;
}

UTOStream& UTOStream::operator<<(int32 value) {
    put_number(*this, value);
    return *this;
}

UTOStream& UTOStream::operator<<(uint32 value) {
    put_number(*this, value);
    return *this;
}

UTOStream& UTOStream::operator<<(uint64 value) {
    put_number(*this, value);
    return *this;
}

UTOStream& UTOStream::operator<<(double value) {
    put_number(*this, value);
    return *this;
}

UTOStream& UTOStream::operator<<(const char* text) {
    put(text);
    return *this;
}
