#include <bit>

#include "utils/digest/shacode.h"
#include "utils/digest/utdigest.h"
#include "utils/etc/utbytes.h"
#include "utils/etc/utcpu.h"

alignas(16) const uint32 ut_sha256_constants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

namespace {

struct a_sha256_state {
    uint32 a, b, c, d, e, f, g, h;
};

// The functions of FIPS 180-4 section 4.1.2, the first two with an operation less than there.
uint32 choose(uint32 x, uint32 y, uint32 z) {
    return z ^ (x & (y ^ z));
}
uint32 majority(uint32 x, uint32 y, uint32 z) {
    return (x & y) | (z & (x | y));
}
uint32 big_sigma0(uint32 x) {
    return std::rotr(x, 2) ^ std::rotr(x, 13) ^ std::rotr(x, 22);
}
uint32 big_sigma1(uint32 x) {
    return std::rotr(x, 6) ^ std::rotr(x, 11) ^ std::rotr(x, 25);
}
uint32 small_sigma0(uint32 x) {
    return std::rotr(x, 7) ^ std::rotr(x, 18) ^ (x >> 3);
}
uint32 small_sigma1(uint32 x) {
    return std::rotr(x, 17) ^ std::rotr(x, 19) ^ (x >> 10);
}

/// Brings the ring of the last sixteen schedule words from one group of sixteen to the next.
inline void next_words(uint32 (&words)[16]) {
#pragma GCC unroll 16
    for (unsigned t = 0; t < 16; ++t) {
        words[t] += small_sigma0(words[(t + 1) % 16]) + words[(t + 9) % 16] +
                    small_sigma1(words[(t + 14) % 16]);
    }
}

inline void step(uint32 a, uint32 b, uint32 c, uint32& d, uint32 e, uint32 f, uint32 g, uint32& h,
                 uint32 word_and_constant) {
    h += big_sigma1(e) + choose(e, f, g) + word_and_constant;
    d += h;
    h += big_sigma0(a) + majority(a, b, c);
}

/// Sixteen steps, eight at a time so that the variables change places by their names.
inline void rounds(a_sha256_state& s, const uint32 (&words)[16], const uint32* constants) {
#pragma GCC unroll 2
    for (unsigned t = 0; t < 16; t += 8) {
        step(s.a, s.b, s.c, s.d, s.e, s.f, s.g, s.h, words[t] + constants[t]);
        step(s.h, s.a, s.b, s.c, s.d, s.e, s.f, s.g, words[t + 1] + constants[t + 1]);
        step(s.g, s.h, s.a, s.b, s.c, s.d, s.e, s.f, words[t + 2] + constants[t + 2]);
        step(s.f, s.g, s.h, s.a, s.b, s.c, s.d, s.e, words[t + 3] + constants[t + 3]);
        step(s.e, s.f, s.g, s.h, s.a, s.b, s.c, s.d, words[t + 4] + constants[t + 4]);
        step(s.d, s.e, s.f, s.g, s.h, s.a, s.b, s.c, words[t + 5] + constants[t + 5]);
        step(s.c, s.d, s.e, s.f, s.g, s.h, s.a, s.b, words[t + 6] + constants[t + 6]);
        step(s.b, s.c, s.d, s.e, s.f, s.g, s.h, s.a, words[t + 7] + constants[t + 7]);
    }
}

inline void compress_block(uint32* state, const a_byte* block) {
    uint32 words[16];
    for (std::size_t i = 0; i < 16; ++i) words[i] = ut_load_be32(block + 4 * i);
    a_sha256_state s = {state[0], state[1], state[2], state[3],
                        state[4], state[5], state[6], state[7]};
    rounds(s, words, ut_sha256_constants);
    for (unsigned t = 16; t < 64; t += 16) {
        next_words(words);
        rounds(s, words, ut_sha256_constants + t);
    }
    const uint32 sums[8] = {s.a, s.b, s.c, s.d, s.e, s.f, s.g, s.h};
    for (unsigned i = 0; i < 8; ++i) state[i] += sums[i];
}

a_compress_code best_code() {
    return ut_cpu_has_sha() ? ut_sha256_instructions : ut_sha256_plain;
}

}  // namespace

const uint32 a_sha256_algorithm::initial_state[8] = {
    0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19,
};

void ut_sha256_plain(uint32* state, const a_byte* blocks, std::size_t count) {
    for (; count != 0; --count, blocks += 64) compress_block(state, blocks);
}

void a_sha256_algorithm::compress(uint32* state, const a_byte* blocks, std::size_t count) {
    ut_code_for_cpu<best_code>()(state, blocks, count);
}
