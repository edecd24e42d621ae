#ifndef QUOREL_TESTS_UTILS_CRYPTOPEER_H
#define QUOREL_TESTS_UTILS_CRYPTOPEER_H

/// What the tests of the primitives share: hex text and sample bytes.

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "utils/etc/uttypes.h"

inline std::string to_hex(std::string_view bytes) {
    std::string hex;
    for (const a_byte byte : bytes)
        hex += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return hex;
}

inline std::string from_hex(std::string_view hex) {
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

inline a_byte* bytes_of(std::string& text) {
    return reinterpret_cast<a_byte*>(text.data());
}
inline const a_byte* bytes_of(const std::string& text) {
    return reinterpret_cast<const a_byte*>(text.data());
}

/// `first`, `first` + 7, `first` + 14 and so on, modulo 256.
inline std::string sample_bytes(std::size_t len, unsigned first = 3) {
    std::string bytes;
    for (; bytes.size() < len; first += 7) bytes += static_cast<char>(first);
    return bytes;
}

#endif
