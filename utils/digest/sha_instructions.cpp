#include <immintrin.h>

#include "utils/digest/shacode.h"
#include "utils/etc/utcpu.h"

#define SHA_FEATURES "sha,sse4.1,ssse3"

namespace {

UT_INLINE_CODE_FOR(SHA_FEATURES) __m128i load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

UT_INLINE_CODE_FOR(SHA_FEATURES) void store(void* to, __m128i value) {
    _mm_storeu_si128(static_cast<__m128i*>(to), value);
}

/// Four steps of SHA-1 whose function and constant are number `Function` of the four.
template <int Function>
UT_INLINE_CODE_FOR(SHA_FEATURES)
__m128i sha1_steps(__m128i abcd, __m128i e_and_words) {
    return _mm_sha1rnds4_epu32(abcd, e_and_words, Function);
}

UT_INLINE_CODE_FOR(SHA_FEATURES)
__m128i sha1_steps(std::size_t group, __m128i abcd, __m128i e_and_words) {
    if (group < 5) return sha1_steps<0>(abcd, e_and_words);
    if (group < 10) return sha1_steps<1>(abcd, e_and_words);
    if (group < 15) return sha1_steps<2>(abcd, e_and_words);
    return sha1_steps<3>(abcd, e_and_words);
}

/// The next four words of SHA-1's schedule from the last sixteen, w[0] holding the oldest.
UT_INLINE_CODE_FOR(SHA_FEATURES)
__m128i sha1_next_words(const __m128i (&w)[4]) {
    return _mm_sha1msg2_epu32(_mm_xor_si128(_mm_sha1msg1_epu32(w[0], w[1]), w[2]), w[3]);
}

/// The next four words of SHA-256's schedule from the last sixteen, w[0] holding the oldest.
UT_INLINE_CODE_FOR(SHA_FEATURES)
__m128i sha256_next_words(const __m128i (&w)[4]) {
    const __m128i seven_back = _mm_alignr_epi8(w[3], w[2], 4);
    return _mm_sha256msg2_epu32(_mm_add_epi32(_mm_sha256msg1_epu32(w[0], w[1]), seven_back), w[3]);
}

UT_INLINE_CODE_FOR(SHA_FEATURES) void push(__m128i (&w)[4], __m128i newest) {
    w[0] = w[1];
    w[1] = w[2];
    w[2] = w[3];
    w[3] = newest;
}

}  // namespace

UT_CODE_FOR(SHA_FEATURES)
void ut_sha1_instructions(uint32* state, const a_byte* blocks, std::size_t count) {
    // The instructions hold a in the highest lane, so words are loaded in reverse order.
    const __m128i reverse = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    __m128i abcd = _mm_shuffle_epi32(load(state), 0x1b);
    __m128i e = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
    for (; count != 0; --count, blocks += 64) {
        const __m128i abcd_before = abcd, e_before = e;
        __m128i w[4];
        for (std::size_t i = 0; i < 4; ++i) w[i] = _mm_shuffle_epi8(load(blocks + 16 * i), reverse);
        __m128i four_steps_ago = abcd;
#pragma GCC unroll 20
        for (std::size_t group = 0; group < 20; ++group) {
            // sha1nexte derives this group's e from the a of four steps ago and adds the words.
            const __m128i e_and_words =
                group == 0 ? _mm_add_epi32(e, w[0]) : _mm_sha1nexte_epu32(four_steps_ago, w[0]);
            four_steps_ago = abcd;
            abcd = sha1_steps(group, abcd, e_and_words);
            push(w, group < 16 ? sha1_next_words(w) : w[0]);
        }
        e = _mm_sha1nexte_epu32(four_steps_ago, e_before);
        abcd = _mm_add_epi32(abcd, abcd_before);
    }
    store(state, _mm_shuffle_epi32(abcd, 0x1b));
    state[4] = static_cast<uint32>(_mm_extract_epi32(e, 3));
}

UT_CODE_FOR(SHA_FEATURES)
void ut_sha256_instructions(uint32* state, const a_byte* blocks, std::size_t count) {
    const __m128i swap_bytes = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    // The instructions want the state as a, b, e, f and c, d, g, h, highest lane first.
    const __m128i badc = _mm_shuffle_epi32(load(state), 0xb1);
    const __m128i hgfe = _mm_shuffle_epi32(load(state + 4), 0x1b);
    __m128i abef = _mm_alignr_epi8(badc, hgfe, 8);
    __m128i cdgh = _mm_blend_epi16(hgfe, badc, 0xf0);
    for (; count != 0; --count, blocks += 64) {
        const __m128i abef_before = abef, cdgh_before = cdgh;
        __m128i w[4];
        for (std::size_t i = 0; i < 4; ++i)
            w[i] = _mm_shuffle_epi8(load(blocks + 16 * i), swap_bytes);
#pragma GCC unroll 16
        for (std::size_t group = 0; group < 16; ++group) {
            const __m128i sums = _mm_add_epi32(w[0], load(ut_sha256_constants + 4 * group));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sums);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sums, 0x0e));
            push(w, group < 12 ? sha256_next_words(w) : w[0]);
        }
        abef = _mm_add_epi32(abef, abef_before);
        cdgh = _mm_add_epi32(cdgh, cdgh_before);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
    store(state, _mm_blend_epi16(feba, dchg, 0xf0));
    store(state + 4, _mm_alignr_epi8(dchg, feba, 8));
}
