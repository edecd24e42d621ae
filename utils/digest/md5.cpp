#include <bit>

#include "utils/digest/utdigest.h"
#include "utils/etc/utbytes.h"

namespace {

/// RFC 1321 section 3.4: the integer part of 2^32 times the absolute sine of 1 to 64.
constexpr uint32 sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

/// One operation: a = b + ((a + f(b, c, d) + word + sine) <<< shift), f given as `mix`.
inline void step(uint32& a, uint32 b, uint32 mix, uint32 word_and_sine, int shift) {
    a = b + std::rotl(a + mix + word_and_sine, shift);
}

/// Sixteen operations: the word used advances by `stride` from `start`, the shifts repeat by four.
template <unsigned Round, unsigned Start, unsigned Stride, int S0, int S1, int S2, int S3,
          class Mix>
inline void round(uint32 (&s)[4], const uint32* words, Mix mix) {
#pragma GCC unroll 4
    for (unsigned i = 0; i < 16; i += 4) {
        const auto term = [&](unsigned n) {
            return words[(Start + Stride * n) % 16] + sines[16 * Round + n];
        };
        step(s[0], s[1], mix(s[1], s[2], s[3]), term(i), S0);
        step(s[3], s[0], mix(s[0], s[1], s[2]), term(i + 1), S1);
        step(s[2], s[3], mix(s[3], s[0], s[1]), term(i + 2), S2);
        step(s[1], s[2], mix(s[2], s[3], s[0]), term(i + 3), S3);
    }
}

// The functions F to I of RFC 1321 section 3.4. F takes an operation less in this form; the halves
// of G have no bit in common, and added they let the processor begin with the one that need not
// wait.
inline void compress_block(uint32* state, const a_byte* block) {
    uint32 words[16];
    for (std::size_t i = 0; i < 16; ++i) words[i] = ut_load_le32(block + 4 * i);
    uint32 s[4] = {state[0], state[1], state[2], state[3]};
    round<0, 0, 1, 7, 12, 17, 22>(s, words,
                                  [](uint32 x, uint32 y, uint32 z) { return z ^ (x & (y ^ z)); });
    round<1, 1, 5, 5, 9, 14, 20>(s, words,
                                 [](uint32 x, uint32 y, uint32 z) { return (x & z) + (y & ~z); });
    round<2, 5, 3, 4, 11, 16, 23>(s, words, [](uint32 x, uint32 y, uint32 z) { return x ^ y ^ z; });
    round<3, 0, 7, 6, 10, 15, 21>(s, words,
                                  [](uint32 x, uint32 y, uint32 z) { return y ^ (x | ~z); });
    for (unsigned i = 0; i < 4; ++i) state[i] += s[i];
}

}  // namespace

const uint32 a_md5_algorithm::initial_state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

void a_md5_algorithm::compress(uint32* state, const a_byte* blocks, std::size_t count) {
    for (; count != 0; --count, blocks += 64) compress_block(state, blocks);
}
