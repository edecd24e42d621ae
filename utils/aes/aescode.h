#ifndef QUOREL_UTILS_AES_AESCODE_H
#define QUOREL_UTILS_AES_AESCODE_H

/// The codes behind UTAES, for utils/aes itself, which chooses, and for tests and benchmarks, which
/// compare. No address needs any alignment.

#include <cstddef>

#include "utils/etc/uttypes.h"

struct a_aes_code {
    /// Makes a schedule (room: UTAES::schedule_size) from the rounds + 1 keys of the key expansion.
    void (*prepare)(a_byte* schedule, const a_byte* round_keys, unsigned rounds);

    /// CBC in place over `blocks` blocks; iv is left as the last block of ciphertext.
    void (*encrypt_cbc)(const a_byte* schedule, unsigned rounds, a_byte* iv, a_byte* data,
                        std::size_t blocks);
    void (*decrypt_cbc)(const a_byte* schedule, unsigned rounds, a_byte* iv, a_byte* data,
                        std::size_t blocks);
};

extern const a_aes_code ut_aes_plain;         // runs on any processor
extern const a_aes_code ut_aes_sse2;          // the same source for ut_cpu_has_sse2()
extern const a_aes_code ut_aes_ssse3;         // for ut_cpu_has_ssse3()
extern const a_aes_code ut_aes_instructions;  // for ut_cpu_has_aes()

#endif
