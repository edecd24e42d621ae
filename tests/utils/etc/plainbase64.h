#ifndef QUOREL_TESTS_UTILS_ETC_PLAINBASE64_H
#define QUOREL_TESTS_UTILS_ETC_PLAINBASE64_H

#include <cstddef>
#include <string>

/// RFC 4648, section 4, a bit at a time. A line that is full is broken, also at the end; length 0
/// breaks none.
inline std::string plain_base64(const std::string& data, size_t line_length) {
    constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    size_t column = 0;
    const auto put = [&](char c) {
        text += c;
        if (++column != line_length) return;
        text += "\r\n";
        column = 0;
    };
    unsigned bits = 0;
    unsigned held = 0;
    for (const char c : data) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (held += 8; held >= 6; held -= 6) put(alphabet[bits >> (held - 6) & 63]);
    }
    if (held != 0) put(alphabet[bits << (6 - held) & 63]);
    for (size_t filled = data.size(); filled % 3 != 0; ++filled) put('=');
    return text;
}

#endif
