#ifndef QUOREL_UTILS_DIGEST_UTPBKDF2_H
#define QUOREL_UTILS_DIGEST_UTPBKDF2_H

/// PBKDF2 with HMAC-SHA-256 (RFC 8018 section 5.2): derives `out_len` bytes from a password.

#include <cstddef>

#include "utils/etc/uttypes.h"

/// `iterations` of 0 counts as 1. Password and salt may be null when their length is 0. `out_len`
/// is at most 2^32 - 1 blocks of 32 bytes, which any object is. Takes about `iterations` times the
/// time of two SHA-256 blocks for each 32 bytes of `out`.
void ut_pbkdf2_hmac_sha256(const void* password, std::size_t password_len, const void* salt,
                           std::size_t salt_len, uint32 iterations, a_byte* out,
                           std::size_t out_len);

#endif
