#include "host/compose/base64lines.h"

#include <algorithm>
#include <cstring>

namespace host {

namespace {

constexpr std::uint64_t line_length = 76;

constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void put_digits(char* to, std::uint32_t bits) {
    for (int i = 0; i < 4; ++i) to[i] = digits[bits >> (18 - 6 * i) & 0x3FU];
}

std::uint32_t byte(char c) {
    return static_cast<unsigned char>(c);
}

}  // namespace

std::uint64_t base64_lines_length(std::uint64_t bytes) {
    const std::uint64_t length = (bytes + 2) / 3 * 4;
    return length == 0 ? 0 : length + (length - 1) / line_length * 2;
}

void Base64Lines::put(std::string_view bytes) {
    if (_held_size > 0) {
        const std::size_t taken = std::min(line - _held_size, bytes.size());
        std::memcpy(_held + _held_size, bytes.data(), taken);
        _held_size += taken;
        bytes.remove_prefix(taken);
        if (_held_size < line) return;
        put_line({_held, line});
        _held_size = 0;
    }
    for (; bytes.size() >= line; bytes.remove_prefix(line)) put_line(bytes.substr(0, line));
    if (!bytes.empty()) std::memcpy(_held, bytes.data(), bytes.size());
    _held_size = bytes.size();
}

char* Base64Lines::end() {
    if (_held_size > 0) put_line({_held, _held_size});
    _held_size = 0;
    return _to;
}

void Base64Lines::put_line(std::string_view bytes) {
    if (!_first) {
        *_to++ = '\r';
        *_to++ = '\n';
    }
    _first = false;
    for (; bytes.size() >= 3; bytes.remove_prefix(3), _to += 4)
        put_digits(_to, byte(bytes[0]) << 16 | byte(bytes[1]) << 8 | byte(bytes[2]));
    if (bytes.empty()) return;
    put_digits(_to, byte(bytes[0]) << 16 | (bytes.size() > 1 ? byte(bytes[1]) << 8 : 0));
    _to[3] = '=';
    if (bytes.size() == 1) _to[2] = '=';
    _to += 4;
}

}  // namespace host
