#ifndef QUOREL_UTILS_DSS_UTDSA_H
#define QUOREL_UTILS_DSS_UTDSA_H

/// DSA signatures over SHA-1 digests (FIPS 186-4 section 4), with domain parameters of 1024/160 and
/// 2048/256 bits and the deterministic nonces of RFC 6979, which need no random numbers: the same
/// key and digest always give the same signature.
///
/// Signing takes the same time and touches the same memory whatever the private key and the nonce
/// are; both are wiped. Nothing allocates.
///
/// Threads: any number of threads may sign and verify with one object while none sets anything.

#include "utils/dss/utmodulus.h"

class UTDSA {
  public:
    static constexpr std::size_t digest_size = 20;         // of a message, by SHA-1
    static constexpr std::size_t max_signature_size = 64;  // for 2048/256

    UTDSA() = default;
    UTDSA(const UTDSA&) = delete;
    UTDSA& operator=(const UTDSA&) = delete;

    /// Takes domain parameters after checking them: the sizes are one of the two pairs, p and q are
    /// prime, q divides p - 1, and g has the order q. This takes many times as long as a signature.
    /// False when they are wrong; the object then has no parameters. Keys set before are dropped.
    a_bool set_domain(const UTBigInt& p, const UTBigInt& q, const UTBigInt& g);

    /// Takes the public key after checking that it belongs to the domain, which must be set; false
    /// and no change otherwise.
    a_bool set_public_key(const UTBigInt& y);

    /// Takes the private key, between 0 and q, and derives the public key from it. False and no
    /// change when it is out of range, or when a public key is set that does not belong to it.
    a_bool set_private_key(const UTBigInt& x);

    a_bool can_sign() const { return _has_private_key; }
    a_bool can_verify() const { return _has_public_key; }

    /// Bytes of a signature: r, then s, each with the length of q, the most significant byte first.
    std::size_t signature_size() const { return 2 * _q.bytes(); }

    /// Stores signature_size() bytes. False without a private key.
    a_bool sign(const a_byte* digest, a_byte* signature) const;

    /// True when `signature`, signature_size() bytes, is one that the owner of the public key made
    /// for this digest. False for every other, and without a public key.
    a_bool verify(const a_byte* digest, const a_byte* signature) const;

  private:
    UTModulus _p, _q;
    UTBigInt _g, _y, _x;
    a_bool _has_domain = false, _has_public_key = false, _has_private_key = false;
};

#endif
