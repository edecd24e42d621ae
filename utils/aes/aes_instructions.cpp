#include <immintrin.h>

#include "utils/aes/aescode.h"
#include "utils/etc/utcpu.h"

#define AES_FEATURES "aes,sse2"

namespace {

constexpr std::size_t block_size = 16;

// How many blocks decryption has under way at once: as many as the registers hold beside a round
// key, since each instruction waits for the one before it on the same block.
#if defined(__x86_64__)
constexpr std::size_t parallel_blocks = 8;
#else
constexpr std::size_t parallel_blocks = 6;
#endif

UT_INLINE_CODE_FOR(AES_FEATURES) __m128i load(const a_byte* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

UT_INLINE_CODE_FOR(AES_FEATURES) void store(a_byte* to, __m128i value) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), value);
}

UT_INLINE_CODE_FOR(AES_FEATURES)
const a_byte* decryption_keys(const a_byte* schedule, unsigned rounds) {
    return schedule + block_size * (rounds + 1);
}

/// The keys of the cipher, then those of the equivalent inverse cipher (FIPS 197 section 5.3.5) in
/// the order of use.
UT_CODE_FOR(AES_FEATURES)
void prepare(a_byte* schedule, const a_byte* round_keys, unsigned rounds) {
    a_byte* const decryption = schedule + block_size * (rounds + 1);
    for (unsigned round = 0; round <= rounds; ++round) {
        const __m128i key = load(round_keys + block_size * round);
        const bool outer = round == 0 || round == rounds;
        store(schedule + block_size * round, key);
        store(decryption + block_size * (rounds - round), outer ? key : _mm_aesimc_si128(key));
    }
}

UT_CODE_FOR(AES_FEATURES)
void encrypt_cbc(const a_byte* schedule, unsigned rounds, a_byte* iv, a_byte* data,
                 std::size_t blocks) {
    const __m128i first_key = load(schedule), last_key = load(schedule + block_size * rounds);
    __m128i state = load(iv);
    // One after the other: each block is mixed with what became of the one before.
    for (; blocks != 0; --blocks, data += block_size) {
        state = _mm_xor_si128(_mm_xor_si128(state, load(data)), first_key);
#pragma GCC unroll 13
        for (unsigned round = 1; round < rounds; ++round) {
            state = _mm_aesenc_si128(state, load(schedule + block_size * round));
        }
        state = _mm_aesenclast_si128(state, last_key);
        store(data, state);
    }
    store(iv, state);
}

/// Decrypts `Count` blocks and returns the last block of ciphertext.
template <std::size_t Count>
UT_INLINE_CODE_FOR(AES_FEATURES)
__m128i decrypt_some(const a_byte* keys, unsigned rounds, __m128i previous, a_byte* data) {
    __m128i state[Count];
    const __m128i first_key = load(keys);
#pragma GCC unroll 8
    for (std::size_t i = 0; i < Count; ++i) {
        state[i] = _mm_xor_si128(load(data + block_size * i), first_key);
    }
    for (unsigned round = 1; round < rounds; ++round) {
        const __m128i key = load(keys + block_size * round);
#pragma GCC unroll 8
        for (std::size_t i = 0; i < Count; ++i) state[i] = _mm_aesdec_si128(state[i], key);
    }
    const __m128i last_key = load(keys + block_size * rounds);
#pragma GCC unroll 8
    for (std::size_t i = 0; i < Count; ++i) {
        // Before it is overwritten: the next block needs it.
        const __m128i ciphertext = load(data + block_size * i);
        state[i] = _mm_aesdeclast_si128(state[i], last_key);
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
    for (; blocks != 0; --blocks, data += block_size) {
        previous = decrypt_some<1>(keys, rounds, previous, data);
    }
    store(iv, previous);
}

}  // namespace

const a_aes_code ut_aes_instructions = {prepare, encrypt_cbc, decrypt_cbc};
