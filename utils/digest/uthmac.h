#ifndef QUOREL_UTILS_DIGEST_UTHMAC_H
#define QUOREL_UTILS_DIGEST_UTHMAC_H

/// HMAC (RFC 2104) over one of the digests: `UTHMAC<UTSHA256> mac(key, key_len);`. Any number of
/// messages can follow one key. Nothing allocates and nothing fails; the object is wiped when it is
/// destroyed, since its digests wipe themselves. One object is used by one thread at a time.

#include <cstring>

#include "utils/digest/utdigest.h"

template <class Digest>
class UTHMAC {
  public:
    static constexpr std::size_t mac_size = Digest::digest_size;

    /// `key` is not kept; it may be null when `key_len` is 0.
    UTHMAC(const void* key, std::size_t key_len) {
        a_wiped_bytes<Digest::block_size> pad;
        std::memset(pad.data, 0, pad.size);
        if (key_len > pad.size) {
            _inner.add(key, key_len);
            _inner.end(pad.data);
        } else if (key_len != 0) {
            std::memcpy(pad.data, key, key_len);
        }
        for (a_byte& byte : pad.data) byte ^= 0x36;
        _inner.add(pad.data, pad.size);
        for (a_byte& byte : pad.data) byte ^= 0x36 ^ 0x5c;
        _outer.add(pad.data, pad.size);
        _message = _inner;
    }

    /// Adds `len` bytes to the message. `data` may be null when `len` is 0.
    void add(const void* data, std::size_t len) { _message.add(data, len); }

    /// Stores the code of the message, mac_size bytes, and starts a new message under the same key.
    /// `out` may be what was added.
    void end(a_byte* out) {
        _message.end(out);
        _message = _outer;
        _message.add(out, mac_size);
        _message.end(out);
        _message = _inner;
    }

  private:
    Digest _inner, _outer;  // digests that have taken the padded keys
    Digest _message;
};

#endif
