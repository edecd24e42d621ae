#include "utils/aes/utaes.h"

#include <bit>
#include <cstring>

#include "utils/aes/aescode.h"
#include "utils/aes/aessbox.h"
#include "utils/etc/utbytes.h"
#include "utils/etc/utcpu.h"

namespace {

constexpr unsigned max_rounds = 14;

using a_round_keys = a_wiped_bytes<UTAES::block_size*(max_rounds + 1)>;

/// Substitutes the four bytes of a word, with logical operations: what a table is looked up with
/// shows in the cache, and here that is the key.
uint32 substitute_word(uint32 word) {
    constexpr uint32 lowest_bits = 0x01010101;
    uint32 planes[8];
    for (unsigned i = 0; i < 8; ++i) planes[i] = (word >> i) & lowest_bits;
    aes_substitute(planes);
    uint32 substituted = 0;
    for (unsigned i = 0; i < 8; ++i) substituted |= (planes[i] & lowest_bits) << i;
    ut_wipe(planes, sizeof planes);
    return substituted;
}

/// Key expansion, FIPS 197 section 5.2, on words whose first byte is the lowest.
void expand_key(a_round_keys& keys, const a_byte* key, std::size_t key_len, unsigned rounds) {
    const std::size_t key_words = key_len / 4, words = std::size_t{4} * (rounds + 1);
    std::memcpy(keys.data, key, key_len);
    uint32 constant = 1;  // Rcon: powers of x in the field of AES
    for (std::size_t i = key_words; i < words; ++i) {
        uint32 word = ut_load_le32(keys.data + 4 * (i - 1));
        if (i % key_words == 0) {
            word = substitute_word(std::rotr(word, 8)) ^ constant;
            constant = (constant << 1) ^ ((constant >> 7) * 0x11b);
        } else if (key_words > 6 && i % key_words == 4) {
            // Of a key of 32 bytes the fifth word of each eight, too.
            word = substitute_word(word);
        }
        ut_store_le32(keys.data + 4 * i, word ^ ut_load_le32(keys.data + 4 * (i - key_words)));
    }
}

const a_aes_code* best_code() {
    if (ut_cpu_has_aes()) return &ut_aes_instructions;
    if (ut_cpu_has_ssse3()) return &ut_aes_ssse3;
    return ut_cpu_has_sse2() ? &ut_aes_sse2 : &ut_aes_plain;
}

}  // namespace

a_bool UTAES::set_key(const a_byte* key, std::size_t key_len) {
    return set_key(key, key_len, *ut_code_for_cpu<best_code>());
}

a_bool UTAES::set_key(const a_byte* key, std::size_t key_len, const a_aes_code& code) {
    // First of all, so that a key that is refused leaves none in use.
    _code = nullptr;
    if (key == nullptr || (key_len != 16 && key_len != 32)) return false;
    _rounds = key_len == 16 ? 10 : max_rounds;
    a_round_keys round_keys;
    expand_key(round_keys, key, key_len, _rounds);
    code.prepare(_schedule, round_keys.data, _rounds);
    _code = &code;
    return true;
}

a_bool UTAES::encrypt_cbc(a_byte* iv, a_byte* data, std::size_t len) const {
    if (!fits(len)) return false;
    if (len != 0) _code->encrypt_cbc(_schedule, _rounds, iv, data, len / block_size);
    return true;
}

a_bool UTAES::decrypt_cbc(a_byte* iv, a_byte* data, std::size_t len) const {
    if (!fits(len)) return false;
    if (len != 0) _code->decrypt_cbc(_schedule, _rounds, iv, data, len / block_size);
    return true;
}
