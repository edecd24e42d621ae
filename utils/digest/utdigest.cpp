#include "utils/digest/utdigest.h"

#include <cstring>

#include "utils/etc/utbytes.h"

template <class Algorithm>
void UTBlockDigest<Algorithm>::begin() {
    std::memcpy(_state, Algorithm::initial_state, sizeof _state);
    _len = 0;
}

template <class Algorithm>
void UTBlockDigest<Algorithm>::add(const void* data, std::size_t len) {
    const a_byte* from = static_cast<const a_byte*>(data);
    const std::size_t held = static_cast<std::size_t>(_len % block_size);
    _len += len;
    if (held != 0) {
        const std::size_t room = block_size - held;
        if (len < room) {
            // memcpy() may not be given null, which a caller with nothing to add may pass.
            if (len != 0) std::memcpy(_block + held, from, len);
            return;
        }
        std::memcpy(_block + held, from, room);
        Algorithm::compress(_state, _block, 1);
        from += room;
        len -= room;
    }
    const std::size_t whole = len / block_size;
    if (whole != 0) Algorithm::compress(_state, from, whole);
    const std::size_t rest = len % block_size;
    if (rest != 0) std::memcpy(_block, from + whole * block_size, rest);
}

/// Padding of FIPS 180-4 section 5.1.1 and RFC 1321 section 3.1: a one bit, zeros, and the length
/// in bits as the last eight bytes of a block.
template <class Algorithm>
void UTBlockDigest<Algorithm>::pad() {
    constexpr std::size_t length_at = block_size - 8;
    const uint64 bits = _len * 8;
    std::size_t held = static_cast<std::size_t>(_len % block_size);
    _block[held++] = 0x80;
    if (held > length_at) {
        std::memset(_block + held, 0, block_size - held);
        Algorithm::compress(_state, _block, 1);
        held = 0;
    }
    std::memset(_block + held, 0, length_at - held);
    if constexpr (Algorithm::big_endian) {
        ut_store_be64(_block + length_at, bits);
    } else {
        ut_store_le64(_block + length_at, bits);
    }
    Algorithm::compress(_state, _block, 1);
}

template <class Algorithm>
void UTBlockDigest<Algorithm>::end(a_byte* out) {
    pad();
    for (std::size_t word = 0; word < digest_size / 4; ++word) {
        if constexpr (Algorithm::big_endian) {
            ut_store_be32(out + 4 * word, _state[word]);
        } else {
            ut_store_le32(out + 4 * word, _state[word]);
        }
    }
    begin();
}

template class UTBlockDigest<a_md5_algorithm>;
template class UTBlockDigest<a_sha1_algorithm>;
template class UTBlockDigest<a_sha256_algorithm>;
