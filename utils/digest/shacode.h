#ifndef QUOREL_UTILS_DIGEST_SHACODE_H
#define QUOREL_UTILS_DIGEST_SHACODE_H

/// The two codes behind each SHA compression function, for utils/digest itself, which chooses, and
/// for tests and benchmarks, which compare. All take `count` blocks of 64 bytes into `state`.

#include <cstddef>

#include "utils/etc/uttypes.h"

using a_compress_code = void (*)(uint32* state, const a_byte* blocks, std::size_t count);

// Run on any processor, in time that depends on nothing but `count`.
void ut_sha1_plain(uint32* state, const a_byte* blocks, std::size_t count);
void ut_sha256_plain(uint32* state, const a_byte* blocks, std::size_t count);

// Run where ut_cpu_has_sha() says so.
void ut_sha1_instructions(uint32* state, const a_byte* blocks, std::size_t count);
void ut_sha256_instructions(uint32* state, const a_byte* blocks, std::size_t count);

/// Round constants of SHA-256, FIPS 180-4 section 4.2.2, in groups that one vector load takes.
extern const uint32 ut_sha256_constants[64];

#endif
