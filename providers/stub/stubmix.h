#ifndef QUOREL_PROVIDERS_STUB_STUBMIX_H
#define QUOREL_PROVIDERS_STUB_STUBMIX_H

/// The stand-in for all cryptography of the stub: FNV-1a of 64 bits, which anyone can run
/// backwards.

#include <cstddef>
#include <cstring>

#include "kovcert/qxci/qxci.h"

class StubMix {
  public:
    void add(const void* data, size_t len) {
        const a_qxci_byte* const bytes = static_cast<const a_qxci_byte*>(data);
        for (size_t i = 0; i < len; ++i) add_byte(bytes[i]);
    }

    /// Adds a text so that no two lists of texts are added alike.
    void add_text(const char* text) { add(text, std::strlen(text) + 1); }

    /// Stores a result of any length.
    void end(a_qxci_byte* out, size_t len) const {
        StubMix stretched = *this;
        for (size_t i = 0; i < len; ++i) {
            stretched.add_byte(static_cast<a_qxci_byte>(i));
            out[i] = static_cast<a_qxci_byte>(stretched._state >> 32);
        }
    }

    /// Stores 16 hex digits and a zero byte.
    void end_as_text(char* out) const {
        for (unsigned shift = 64; shift != 0; shift -= 4) {
            *out++ = "0123456789abcdef"[_state >> (shift - 4) & 15];
        }
        *out = '\0';
    }
    static constexpr size_t text_size = 17;

  private:
    void add_byte(a_qxci_byte byte) { _state = (_state ^ byte) * 0x100000001b3; }

    uint64_t _state = 0xcbf29ce484222325;
};

#endif
