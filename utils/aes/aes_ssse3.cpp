#include <immintrin.h>

#include "utils/aes/aescode.h"
#include "utils/aes/aespermute.h"
#include "utils/etc/utcpu.h"

#define AES_FEATURES "ssse3"

namespace {

constexpr std::size_t block_size = 16;

// How many blocks decryption has under way at once: one waits for its look-ups longer than it
// computes, and more than two run out of registers.
constexpr std::size_t parallel_blocks = 2;

namespace field = aes_field;

// What a round makes of the inverted bytes, and what follows the last one.
constexpr a_aes_inverse_map cipher_once = field::inverse_map(field::to_cipher_times<1>);
constexpr a_aes_inverse_map cipher_twice = field::inverse_map(field::to_cipher_times<2>);
constexpr a_aes_inverse_map cipher_last = field::inverse_map(field::affine);
constexpr a_aes_inverse_map inverse_cipher[] = {
    field::inverse_map(field::to_inverse_cipher_times<14>),
    field::inverse_map(field::to_inverse_cipher_times<11>),
    field::inverse_map(field::to_inverse_cipher_times<13>),
    field::inverse_map(field::to_inverse_cipher_times<9>)};
constexpr a_aes_inverse_map inverse_cipher_last = field::inverse_map(field::as_it_is);

// The same for what comes in: blocks, and round keys.
constexpr a_aes_map into_cipher = field::map(field::to_cipher);
constexpr a_aes_map into_inverse_cipher = field::map(field::to_inverse_cipher);
constexpr a_aes_map key_into_inverse_cipher[] = {
    field::map(field::to_inverse_cipher_times<14>), field::map(field::to_inverse_cipher_times<11>),
    field::map(field::to_inverse_cipher_times<13>), field::map(field::to_inverse_cipher_times<9>)};

constexpr a_aes_vector shifted[] = {field::shifted_rows(1, 0), field::shifted_rows(1, 1),
                                    field::shifted_rows(1, 2), field::shifted_rows(1, 3)};
constexpr a_aes_vector shifted_back[] = {field::shifted_rows(3, 0), field::shifted_rows(3, 1),
                                         field::shifted_rows(3, 2), field::shifted_rows(3, 3)};
constexpr a_aes_vector below[] = {field::rows_below(0), field::rows_below(1), field::rows_below(2),
                                  field::rows_below(3)};

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i load(const a_byte* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i load(const a_aes_vector& from) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(from.byte));
}

UT_INLINE_CODE_FOR(AES_FEATURES) void store(a_byte* to, __m128i value) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), value);
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i look_up(const a_aes_vector& table, __m128i nibbles) {
    return _mm_shuffle_epi8(load(table), nibbles);
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i rearrange(__m128i bytes, const a_aes_vector& from) {
    return _mm_shuffle_epi8(bytes, load(from));
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i low_nibbles(__m128i bytes) {
    return _mm_and_si128(bytes, _mm_set1_epi8(0x0f));
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i high_nibbles(__m128i bytes) {
    return low_nibbles(_mm_srli_epi32(bytes, 4));
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i apply(const a_aes_map& map, __m128i bytes) {
    return _mm_xor_si128(look_up(map.low, low_nibbles(bytes)),
                         look_up(map.high, high_nibbles(bytes)));
}

/// The nibbles by which the maps of 1/x are looked up.
struct a_inverted {
    __m128i u, t;
};

UT_INLINE_CODE_FOR(AES_FEATURES) a_inverted invert(__m128i state) {
    const __m128i i = high_nibbles(state), k = low_nibbles(state), j = _mm_xor_si128(i, k);
    const __m128i a_per_k = look_up(field::a_times_inverses, k);
    const __m128i by_i = _mm_xor_si128(look_up(field::inverses, i), a_per_k);
    const __m128i by_j = _mm_xor_si128(look_up(field::inverses, j), a_per_k);
    return {_mm_xor_si128(look_up(field::inverses, by_i), j),
            _mm_xor_si128(look_up(field::inverses, by_j), i)};
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i apply(const a_aes_inverse_map& map, a_inverted inverted) {
    return _mm_xor_si128(look_up(map.u, inverted.u), look_up(map.t, inverted.t));
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i cipher_round(__m128i state, __m128i key) {
    const a_inverted inverted = invert(state);
    // FIPS 197 section 5.1.3: a row itself counts twice, the next one three times, the others once.
    const __m128i once = apply(cipher_once, inverted), twice = apply(cipher_twice, inverted);
    state = _mm_xor_si128(key, rearrange(twice, shifted[0]));
    state = _mm_xor_si128(state, rearrange(_mm_xor_si128(once, twice), shifted[1]));
    state = _mm_xor_si128(state, rearrange(once, shifted[2]));
    return _mm_xor_si128(state, rearrange(once, shifted[3]));
}

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i inverse_cipher_round(__m128i state, __m128i key) {
    const a_inverted inverted = invert(state);
    state = key;
#pragma GCC unroll 4
    for (unsigned row = 0; row < 4; ++row) {
        const __m128i product = apply(inverse_cipher[row], inverted);
        state = _mm_xor_si128(state, rearrange(product, shifted_back[row]));
    }
    return state;
}

UT_INLINE_CODE_FOR(AES_FEATURES)
__m128i last_round(const a_aes_inverse_map& map, const a_aes_vector& rows, __m128i state,
                   __m128i key) {
    return _mm_xor_si128(rearrange(apply(map, invert(state)), rows), key);
}

/// A round key of the equivalent inverse cipher (FIPS 197 section 5.3.5).
UT_INLINE_CODE_FOR(AES_FEATURES) __m128i mixed_back(__m128i key) {
    __m128i mixed = _mm_setzero_si128();
#pragma GCC unroll 4
    for (unsigned row = 0; row < 4; ++row) {
        const __m128i product = apply(key_into_inverse_cipher[row], key);
        mixed = _mm_xor_si128(mixed, rearrange(product, below[row]));
    }
    return mixed;
}

UT_INLINE_CODE_FOR(AES_FEATURES)
const a_byte* decryption_keys(const a_byte* schedule, unsigned rounds) {
    return schedule + block_size * (rounds + 1);
}

/// The keys of the cipher, then those of the equivalent inverse cipher in the order of use. A table
/// cannot add the substitution's constant, since infinity is looked up as 0: it is in the keys. The
/// mixing of columns leaves a state of equal bytes as it is.
UT_CODE_FOR(AES_FEATURES)
void prepare(a_byte* schedule, const a_byte* round_keys, unsigned rounds) {
    const __m128i constant = _mm_set1_epi8(field::affine_constant);
    a_byte* const decryption = schedule + block_size * (rounds + 1);
    for (unsigned round = 0; round <= rounds; ++round) {
        const __m128i key = load(round_keys + block_size * round);
        const __m128i with_constant = _mm_xor_si128(key, constant);
        __m128i forward = apply(into_cipher, with_constant);
        __m128i back = _mm_xor_si128(mixed_back(key), apply(into_inverse_cipher, constant));
        if (round == 0) {
            forward = apply(into_cipher, key);
            back = key;
        } else if (round == rounds) {
            forward = with_constant;
            back = apply(into_inverse_cipher, with_constant);
        }
        store(schedule + block_size * round, forward);
        store(decryption + block_size * (rounds - round), back);
    }
}

UT_CODE_FOR(AES_FEATURES)
void encrypt_cbc(const a_byte* schedule, unsigned rounds, a_byte* iv, a_byte* data,
                 std::size_t blocks) {
    const __m128i first_key = load(schedule), last_key = load(schedule + block_size * rounds);
    __m128i block = load(iv);
    // One after the other: each block is mixed with what became of the one before.
    for (; blocks != 0; --blocks, data += block_size) {
        __m128i state = apply(into_cipher, _mm_xor_si128(block, load(data)));
        state = _mm_xor_si128(state, first_key);
        for (unsigned round = 1; round < rounds; ++round) {
            state = cipher_round(state, load(schedule + block_size * round));
        }
        block = last_round(cipher_last, shifted[0], state, last_key);
        store(data, block);
    }
    store(iv, block);
}

/// Decrypts `Count` blocks and returns the last block of ciphertext.
template <std::size_t Count>
UT_INLINE_CODE_FOR(AES_FEATURES)
__m128i decrypt_some(const a_byte* keys, unsigned rounds, __m128i previous, a_byte* data) {
    __m128i state[Count];
    const __m128i first_key = load(keys), last_key = load(keys + block_size * rounds);
#pragma GCC unroll 2
    for (std::size_t i = 0; i < Count; ++i) {
        state[i] =
            _mm_xor_si128(apply(into_inverse_cipher, load(data + block_size * i)), first_key);
    }
    for (unsigned round = 1; round < rounds; ++round) {
        const __m128i key = load(keys + block_size * round);
#pragma GCC unroll 2
        for (std::size_t i = 0; i < Count; ++i) state[i] = inverse_cipher_round(state[i], key);
    }
#pragma GCC unroll 2
    for (std::size_t i = 0; i < Count; ++i) {
        // Before it is overwritten: the next block needs it.
        const __m128i ciphertext = load(data + block_size * i);
        state[i] = last_round(inverse_cipher_last, shifted_back[0], state[i], last_key);
        store(data + block_size * i, _mm_xor_si128(state[i], previous));
        previous = ciphertext;
    }
    return previous;
}

UT_CODE_FOR(AES_FEATURES)
void decrypt_cbc(const a_byte* schedule, unsigned rounds, a_byte* iv, a_byte* data,
                 std::size_t blocks) {
    const a_byte* const keys = decryption_keys(schedule, rounds);
    __m128i previous = load(iv);
    for (; blocks >= parallel_blocks; blocks -= parallel_blocks) {
        previous = decrypt_some<parallel_blocks>(keys, rounds, previous, data);
        data += parallel_blocks * block_size;
    }
    if (blocks != 0) previous = decrypt_some<1>(keys, rounds, previous, data);
    store(iv, previous);
}

}  // namespace

const a_aes_code ut_aes_ssse3 = {prepare, encrypt_cbc, decrypt_cbc};
