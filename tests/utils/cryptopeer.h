#ifndef QUOREL_TESTS_UTILS_CRYPTOPEER_H
#define QUOREL_TESTS_UTILS_CRYPTOPEER_H

/// What the tests of the primitives share: hex text, seeded bytes, and the openssl program as the
/// other implementation to compare with.

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <unistd.h>

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

/// The same bytes on every run.
class SeededBytes {
  public:
    explicit SeededBytes(unsigned seed) : _engine(seed) {}
    std::string operator()(std::size_t len) {
        std::string bytes(len, '\0');
        for (char& byte : bytes) byte = static_cast<char>(_engine());
        return bytes;
    }
    std::size_t below(std::size_t limit) { return _engine() % limit; }

  private:
    std::mt19937 _engine;
};

/// A file with the given contents for as long as the object lives.
class PeerFile {
  public:
    explicit PeerFile(std::string_view contents) {
        const int fd = mkstemp(_path.data());
        EXPECT_EQ(write(fd, contents.data(), contents.size()), ssize_t(contents.size()));
        close(fd);
    }
    ~PeerFile() { unlink(_path.c_str()); }
    PeerFile(const PeerFile&) = delete;
    PeerFile& operator=(const PeerFile&) = delete;
    const char* path() const { return _path.c_str(); }

  private:
    std::string _path = testing::TempDir() + "cryptopeer-XXXXXX";
};

/// What `openssl <arguments>` writes to its standard output.
inline std::string openssl(const std::string& arguments) {
    std::FILE* const out = popen(("openssl " + arguments).c_str(), "r");
    std::string text;
    for (int byte; out != nullptr && (byte = std::getc(out)) != EOF;) text += char(byte);
    if (out != nullptr) pclose(out);
    return text;
}

#endif
