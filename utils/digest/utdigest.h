#ifndef QUOREL_UTILS_DIGEST_UTDIGEST_H
#define QUOREL_UTILS_DIGEST_UTDIGEST_H

/// Message digests that take their message in pieces: MD5 (RFC 1321), SHA-1 and SHA-256 (FIPS
/// 180-4). MD5 and SHA-1 are here for formats that need them; neither resists collisions.
///
///     UTSHA256 digest;
///     digest.add(head, head_len);
///     digest.add(tail, tail_len);
///     digest.end(out);  // UTSHA256::digest_size bytes
///
/// Nothing allocates and nothing fails. A message is shorter than 2^61 bytes. SHA-1 and SHA-256 run
/// on the processor's own instructions where it has them; the result is the same.
///
/// Threads: one object is used by one thread at a time. Copying an object copies the state of its
/// message, so that a common beginning needs digesting once. The destructor wipes the object.

#include <cstddef>

#include "utils/etc/uttypes.h"
#include "utils/utmem/utwipe.h"

/// What differs between the three: `compress` takes `count` blocks of 64 bytes into the state.
struct a_md5_algorithm {
    static constexpr std::size_t digest_size = 16;
    static constexpr a_bool big_endian = false;
    static const uint32 initial_state[digest_size / 4];
    static void compress(uint32* state, const a_byte* blocks, std::size_t count);
};

struct a_sha1_algorithm {
    static constexpr std::size_t digest_size = 20;
    static constexpr a_bool big_endian = true;
    static const uint32 initial_state[digest_size / 4];
    static void compress(uint32* state, const a_byte* blocks, std::size_t count);
};

struct a_sha256_algorithm {
    static constexpr std::size_t digest_size = 32;
    static constexpr a_bool big_endian = true;
    static const uint32 initial_state[digest_size / 4];
    static void compress(uint32* state, const a_byte* blocks, std::size_t count);
};

template <class Algorithm>
class UTBlockDigest {
  public:
    static constexpr std::size_t digest_size = Algorithm::digest_size;
    static constexpr std::size_t block_size = 64;

    /// Ready for the first message.
    UTBlockDigest() { begin(); }
    UTBlockDigest(const UTBlockDigest&) = default;
    UTBlockDigest& operator=(const UTBlockDigest&) = default;
    ~UTBlockDigest() { ut_wipe(this, sizeof *this); }

    /// Starts a new message; what was added before is dropped.
    void begin();

    /// Adds `len` bytes to the message. `data` may be null when `len` is 0.
    void add(const void* data, std::size_t len);

    /// Stores the digest of the message, digest_size bytes, and starts a new message.
    void end(a_byte* out);

  private:
    void pad();

    uint32 _state[digest_size / 4];
    uint64 _len;                // bytes of the message so far
    a_byte _block[block_size];  // its last _len % block_size bytes, not yet compressed
};

using UTMD5 = UTBlockDigest<a_md5_algorithm>;
using UTSHA1 = UTBlockDigest<a_sha1_algorithm>;
using UTSHA256 = UTBlockDigest<a_sha256_algorithm>;

extern template class UTBlockDigest<a_md5_algorithm>;
extern template class UTBlockDigest<a_sha1_algorithm>;
extern template class UTBlockDigest<a_sha256_algorithm>;

#endif
