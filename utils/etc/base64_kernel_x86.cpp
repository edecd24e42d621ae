#include "utils/etc/base64_kernel_x86.h"

#ifdef QUOREL_BASE64_X86

#include <cstring>

#include <immintrin.h>

#include "utils/etc/base64_kernel.h"

// Encoding. Four groups, 12 bytes, become 16 characters in three moves: a shuffle puts the bytes of
// a group where its four 6-bit fields can be had by masks and multiplications, two multiplications
// move the fields into bytes of their own, and a second shuffle gives what to add to a value to get
// its character. That sum depends only on which run of the alphabet the value lies in, A-Z, a-z,
// 0-9, + or /; a saturating subtraction and a comparison give each run an index of its own.
//
// Decoding. A character is valid if the bit that its upper half selects is not set in the mask that
// its lower half selects; both tables are shuffles. The same upper half gives what to add to get
// the value; / takes an unused entry, since it shares its upper half with +. Two multiplications
// with addition join four values to 24 bits, and a shuffle drops the fourth byte.
//
// The AVX2 forms do the same in two 128-bit lanes.

#define QUOREL_SSSE3 __attribute__((target("ssse3")))
#define QUOREL_AVX2 __attribute__((target("avx2")))
#define QUOREL_INLINE inline __attribute__((always_inline))

namespace {

// A shuffle works within its 128-bit lane. The upper lane has its 12 bytes at the end, so that two
// loads of 16 bytes read 24 and no more.
alignas(32) constexpr signed char group_bytes[32] = {1, 0,  2,  1,  4,  3,  5,  4,  7,  6, 8,
                                                     7, 10, 9,  11, 10, 5,  4,  6,  5,  8, 7,
                                                     9, 8,  11, 10, 12, 11, 14, 13, 15, 14};
alignas(16) constexpr signed char run_offsets[16] = {
    'A',      'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
    '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 0,        0};

constexpr int field_mask_02 = 0x0FC0FC00;  // the first and third field of a group
constexpr int field_mask_13 = 0x003F03F0;
constexpr int field_shift_02 = 0x04000040;  // as multipliers: right by 10 and 6 in the upper half
constexpr int field_shift_13 = 0x01000010;  // left by 4 and 8 in the lower half

alignas(16) constexpr signed char invalid_by_lower_half[16] = {
    0x57, 0x07, 0x07, 0x07,  0x07,  0x07,  0x07,  0x07,
    0x07, 0x07, 0x0F, -0x55, -0x51, -0x51, -0x51, -0x55};
alignas(16) constexpr signed char bit_by_upper_half[16] = {1, 2, 4, 8, 16, 32, 64, -128,
                                                           1, 1, 1, 1, 1,  1,  1,  1};
alignas(16) constexpr signed char value_offsets[16] = {
    0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0};
alignas(16) constexpr signed char value_bytes[16] = {2, 1,  0,  6,  5,  4,  10, 9,
                                                     8, 14, 13, 12, -1, -1, -1, -1};
alignas(32) constexpr int joined_lanes[8] = {0, 1, 2, 4, 5, 6, 3, 7};

constexpr int join_pairs = 0x01400140;  // value * 64 + next value
constexpr int join_quads = 0x00011000;  // pair * 4096 + next pair

// A constant for use in a loop. The empty statement hides its value: a compiler that knows it
// builds it anew from scalars in every turn.
QUOREL_SSSE3 QUOREL_INLINE __m128i held(__m128i constant) {
    asm("" : "+x"(constant));
    return constant;
}
QUOREL_AVX2 QUOREL_INLINE __m256i held(__m256i constant) {
    asm("" : "+x"(constant));
    return constant;
}

QUOREL_SSSE3 QUOREL_INLINE __m128i held_table(const signed char* table) {
    return held(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}
QUOREL_AVX2 QUOREL_INLINE __m256i held_table_twice(const signed char* table) {
    return held(
        _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table))));
}
template <class Element>
QUOREL_AVX2 QUOREL_INLINE __m256i held_wide_table(const Element* table) {
    return held(_mm256_load_si256(reinterpret_cast<const __m256i*>(table)));
}

QUOREL_SSSE3 QUOREL_INLINE __m128i load_16(const a_byte* src) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
}

// Exactly 12 bytes in and out, and 24.
QUOREL_SSSE3 QUOREL_INLINE __m128i load_12(const a_byte* src) {
    int last_4;
    std::memcpy(&last_4, src + 8, 4);
    const __m128i first_8 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src));
    return _mm_unpacklo_epi64(first_8, _mm_cvtsi32_si128(last_4));
}

QUOREL_AVX2 QUOREL_INLINE __m256i load_24(const a_byte* src) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(load_16(src)), load_16(src + 8), 1);
}

QUOREL_SSSE3 QUOREL_INLINE void store_12(a_byte* dst, __m128i bytes) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), bytes);
    const int last_4 = _mm_cvtsi128_si32(_mm_srli_si128(bytes, 8));
    std::memcpy(dst + 8, &last_4, 4);
}

QUOREL_AVX2 QUOREL_INLINE void store_24(a_byte* dst, __m256i bytes) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 16), _mm256_extracti128_si256(bytes, 1));
}

// 12 bytes to 16 characters.
struct an_encoder_ssse3 {
    QUOREL_SSSE3 QUOREL_INLINE an_encoder_ssse3() {}

    QUOREL_SSSE3 QUOREL_INLINE void step(char* dst, __m128i source) const {
        const __m128i bytes = _mm_shuffle_epi8(source, spread);
        const __m128i fields_02 = _mm_mulhi_epu16(_mm_and_si128(bytes, mask_02), shift_02);
        const __m128i fields_13 = _mm_mullo_epi16(_mm_and_si128(bytes, mask_13), shift_13);
        const __m128i values = _mm_or_si128(fields_02, fields_13);
        const __m128i run = _mm_sub_epi8(_mm_subs_epu8(values, last_lower_case),
                                         _mm_cmpgt_epi8(values, last_upper_case));
        const __m128i text = _mm_add_epi8(values, _mm_shuffle_epi8(offsets, run));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), text);
    }

    const __m128i spread = held_table(group_bytes);
    const __m128i mask_02 = held(_mm_set1_epi32(field_mask_02));
    const __m128i shift_02 = held(_mm_set1_epi32(field_shift_02));
    const __m128i mask_13 = held(_mm_set1_epi32(field_mask_13));
    const __m128i shift_13 = held(_mm_set1_epi32(field_shift_13));
    const __m128i last_lower_case = held(_mm_set1_epi8(51));
    const __m128i last_upper_case = held(_mm_set1_epi8(25));
    const __m128i offsets = held_table(run_offsets);
};

// 24 bytes to 32 characters.
struct an_encoder_avx2 {
    QUOREL_AVX2 QUOREL_INLINE an_encoder_avx2() {}

    QUOREL_AVX2 QUOREL_INLINE void step(char* dst, const a_byte* src) const {
        const __m256i bytes = _mm256_shuffle_epi8(load_24(src), spread);
        const __m256i fields_02 = _mm256_mulhi_epu16(_mm256_and_si256(bytes, mask_02), shift_02);
        const __m256i fields_13 = _mm256_mullo_epi16(_mm256_and_si256(bytes, mask_13), shift_13);
        const __m256i values = _mm256_or_si256(fields_02, fields_13);
        const __m256i run = _mm256_sub_epi8(_mm256_subs_epu8(values, last_lower_case),
                                            _mm256_cmpgt_epi8(values, last_upper_case));
        const __m256i text = _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, run));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), text);
    }

    const __m256i spread = held_wide_table(group_bytes);
    const __m256i mask_02 = held(_mm256_set1_epi32(field_mask_02));
    const __m256i shift_02 = held(_mm256_set1_epi32(field_shift_02));
    const __m256i mask_13 = held(_mm256_set1_epi32(field_mask_13));
    const __m256i shift_13 = held(_mm256_set1_epi32(field_shift_13));
    const __m256i last_lower_case = held(_mm256_set1_epi8(51));
    const __m256i last_upper_case = held(_mm256_set1_epi8(25));
    const __m256i offsets = held_table_twice(run_offsets);
};

// Rows of groups, as many as a step takes or more. The last step ends with the row and repeats some
// of the groups before.
QUOREL_SSSE3 QUOREL_INLINE void encode_row(const an_encoder_ssse3& encoder, char* dst,
                                           const a_byte* src, size_t groups) {
    size_t i = 0;
    // A load reads 16 bytes for 12 that count, so that two more groups must follow these four.
    for (; i + 6 <= groups; i += 4) encoder.step(dst + 4 * i, load_16(src + 3 * i));
    // With five groups left, the last step alone would leave out the first of them.
    if (i + 4 < groups) encoder.step(dst + 4 * i, load_12(src + 3 * i));
    encoder.step(dst + 4 * (groups - 4), load_12(src + 3 * (groups - 4)));
}

QUOREL_AVX2 QUOREL_INLINE void encode_row(const an_encoder_avx2& encoder, char* dst,
                                          const a_byte* src, size_t groups) {
    for (size_t i = 0; i < groups - 8; i += 8) encoder.step(dst + 4 * i, src + 3 * i);
    encoder.step(dst + 4 * (groups - 8), src + 3 * (groups - 8));
}

QUOREL_SSSE3 void encode_ssse3(char* dst, const a_byte* src, size_t groups) {
    if (groups < 4) return base64_plain_kernel.encode(dst, src, groups);
    encode_row(an_encoder_ssse3(), dst, src, groups);
}

QUOREL_AVX2 void encode_avx2(char* dst, const a_byte* src, size_t groups) {
    if (groups < 8) return encode_ssse3(dst, src, groups);
    encode_row(an_encoder_avx2(), dst, src, groups);
}

QUOREL_SSSE3 void encode_lines_ssse3(char* dst, const a_byte* src, size_t lines, size_t groups) {
    if (groups < 4) return base64_plain_kernel.encode_lines(dst, src, lines, groups);
    const an_encoder_ssse3 encoder;
    for (; lines != 0; --lines, src += 3 * groups) {
        encode_row(encoder, dst, src, groups);
        dst = base64_break_line(dst + 4 * groups);
    }
}

QUOREL_AVX2 void encode_lines_avx2(char* dst, const a_byte* src, size_t lines, size_t groups) {
    if (groups < 8) return encode_lines_ssse3(dst, src, lines, groups);
    const an_encoder_avx2 encoder;
    for (; lines != 0; --lines, src += 3 * groups) {
        encode_row(encoder, dst, src, groups);
        dst = base64_break_line(dst + 4 * groups);
    }
}

// How many whole groups precede the first character that is not valid.
QUOREL_INLINE unsigned groups_in(int valid_characters) {
    return static_cast<unsigned>(__builtin_ctz(~static_cast<unsigned>(valid_characters))) / 4;
}

// 16 characters to 12 bytes; *invalid is zero where a character is of the alphabet.
struct a_decoder_ssse3 {
    QUOREL_SSSE3 QUOREL_INLINE a_decoder_ssse3() {}

    QUOREL_SSSE3 QUOREL_INLINE __m128i step(const a_byte* src, __m128i* invalid) const {
        const __m128i text = load_16(src);
        // "/" is a mask, too: of an index a shuffle looks at the low four bits, not at 0x20.
        const __m128i upper = _mm_and_si128(_mm_srli_epi32(text, 4), slash);
        const __m128i lower = _mm_and_si128(text, slash);
        *invalid = _mm_and_si128(_mm_shuffle_epi8(invalid_by_lower, lower),
                                 _mm_shuffle_epi8(bit_by_upper, upper));
        const __m128i run = _mm_add_epi8(upper, _mm_cmpeq_epi8(text, slash));
        const __m128i values = _mm_add_epi8(text, _mm_shuffle_epi8(offsets, run));
        const __m128i quads = _mm_madd_epi16(_mm_maddubs_epi16(values, pairs_factor), quads_factor);
        return _mm_shuffle_epi8(quads, pack);
    }

    const __m128i slash = held(_mm_set1_epi8('/'));
    const __m128i invalid_by_lower = held_table(invalid_by_lower_half);
    const __m128i bit_by_upper = held_table(bit_by_upper_half);
    const __m128i offsets = held_table(value_offsets);
    const __m128i pairs_factor = held(_mm_set1_epi32(join_pairs));
    const __m128i quads_factor = held(_mm_set1_epi32(join_quads));
    const __m128i pack = held_table(value_bytes);
};

// 32 characters to 24 bytes.
struct a_decoder_avx2 {
    QUOREL_AVX2 QUOREL_INLINE a_decoder_avx2() {}

    QUOREL_AVX2 QUOREL_INLINE __m256i step(const a_byte* src, __m256i* invalid) const {
        const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
        const __m256i upper = _mm256_and_si256(_mm256_srli_epi32(text, 4), slash);
        const __m256i lower = _mm256_and_si256(text, slash);
        *invalid = _mm256_and_si256(_mm256_shuffle_epi8(invalid_by_lower, lower),
                                    _mm256_shuffle_epi8(bit_by_upper, upper));
        const __m256i run = _mm256_add_epi8(upper, _mm256_cmpeq_epi8(text, slash));
        const __m256i values = _mm256_add_epi8(text, _mm256_shuffle_epi8(offsets, run));
        const __m256i quads =
            _mm256_madd_epi16(_mm256_maddubs_epi16(values, pairs_factor), quads_factor);
        return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(quads, pack), join_lanes);
    }

    const __m256i slash = held(_mm256_set1_epi8('/'));
    const __m256i invalid_by_lower = held_table_twice(invalid_by_lower_half);
    const __m256i bit_by_upper = held_table_twice(bit_by_upper_half);
    const __m256i offsets = held_table_twice(value_offsets);
    const __m256i pairs_factor = held(_mm256_set1_epi32(join_pairs));
    const __m256i quads_factor = held(_mm256_set1_epi32(join_quads));
    const __m256i pack = held_table_twice(value_bytes);
    const __m256i join_lanes = held_wide_table(joined_lanes);
};

// Writes the first `groups` of those decoded at `bytes`, `most` at most; returns how many. Each
// number has a branch of its own, so that the processor guesses it from the lines before and goes
// on without waiting for it.
template <size_t most>
QUOREL_INLINE size_t write_leading_groups(a_byte* dst, const a_byte* bytes, unsigned groups) {
    if constexpr (most != 0) {
        if (groups != most) return write_leading_groups<most - 1>(dst, bytes, groups);
        std::memcpy(dst, bytes, 3 * most);
    }
    return most;
}

// Runs of groups without a line break: decodes up to `groups` and returns how many it did.
QUOREL_SSSE3 size_t decode_run_ssse3(a_byte* dst, const a_byte* src, size_t groups) {
    const a_decoder_ssse3 decoder;
    size_t done = 0;
    for (; groups - done >= 4; done += 4, src += 16, dst += 12) {
        __m128i invalid;
        const __m128i bytes = decoder.step(src, &invalid);
        const int valid = _mm_movemask_epi8(_mm_cmpeq_epi8(invalid, _mm_setzero_si128()));
        if (valid != 0xFFFF) {
            alignas(16) a_byte copy[16];
            _mm_store_si128(reinterpret_cast<__m128i*>(copy), bytes);
            return done + write_leading_groups<3>(dst, copy, groups_in(valid));
        }
        store_12(dst, bytes);
    }
    return done + base64_decode_run_plain(dst, src, groups - done);
}

QUOREL_AVX2 QUOREL_INLINE size_t decode_run_avx2(const a_decoder_avx2& decoder, a_byte* dst,
                                                 const a_byte* src, size_t groups) {
    size_t done = 0;
    for (; groups - done >= 8; done += 8, src += 32, dst += 24) {
        __m256i invalid;
        const __m256i bytes = decoder.step(src, &invalid);
        // Which character it is costs more to find out, and in most steps there is none.
        if (_mm256_testz_si256(invalid, invalid) == 0) {
            const __m256i valid = _mm256_cmpeq_epi8(invalid, _mm256_setzero_si256());
            const unsigned leading = groups_in(_mm256_movemask_epi8(valid));
            alignas(32) a_byte copy[32];
            _mm256_store_si256(reinterpret_cast<__m256i*>(copy), bytes);
            return done + write_leading_groups<7>(dst, copy, leading);
        }
        store_24(dst, bytes);
    }
    return done + decode_run_ssse3(dst, src, groups - done);
}

void decode_ssse3(a_base64_spans& spans) {
    do {
        const size_t done = decode_run_ssse3(spans.out, spans.in, spans.groups_to_decode());
        spans.advance(4 * done, 3 * done);
    } while (base64_pass_line_break(spans));
}

QUOREL_AVX2 void decode_avx2(a_base64_spans& result) {
    const a_decoder_avx2 decoder;
    // A copy whose address nobody has stays in registers.
    a_base64_spans spans = result;
    do {
        const size_t done = decode_run_avx2(decoder, spans.out, spans.in, spans.groups_to_decode());
        spans.advance(4 * done, 3 * done);
    } while (base64_pass_line_break(spans));
    result = spans;
}

}  // namespace

const a_base64_kernel base64_ssse3_kernel = {"SSSE3", encode_ssse3, encode_lines_ssse3,
                                             decode_ssse3};
const a_base64_kernel base64_avx2_kernel = {"AVX2", encode_avx2, encode_lines_avx2, decode_avx2};

#endif
