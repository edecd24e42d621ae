#ifndef QUOREL_HOST_SQLITE_SHELL_HEX_H
#define QUOREL_HOST_SQLITE_SHELL_HEX_H

#include <cstdio>
#include <string_view>

namespace host {

/// Calls put() with each character of a BLOB as SQL writes it: x'00ff'.
template <typename Put>
void write_hex(std::string_view bytes, Put put) {
    constexpr std::string_view digits = "0123456789abcdef";
    put('x');
    put('\'');
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        put(digits[byte >> 4]);
        put(digits[byte & 15U]);
    }
    put('\'');
}

/// The same to a stream that this thread alone uses.
inline void print_hex(FILE* out, std::string_view bytes) {
    write_hex(bytes, [out](char c) { putc_unlocked(c, out); });
}

}  // namespace host

#endif
