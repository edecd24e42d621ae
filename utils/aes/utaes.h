#ifndef QUOREL_UTILS_AES_UTAES_H
#define QUOREL_UTILS_AES_UTAES_H

/// AES (FIPS 197) with keys of 128 and 256 bits, in cipher block chaining mode (CBC, NIST SP
/// 800-38A section 6.2).
///
/// Data is changed in place and keeps its length: there is no padding, so it must consist of whole
/// blocks of 16 bytes. A caller with data of any length pads it first, with a rule of its own.
///
/// CBC hides that two blocks are equal only when the initialization vector (IV) cannot be foreseen:
/// use a fresh random one for every message under a key, or a random first block. It does not
/// detect changes; a caller who needs that adds a code over the result (utils/digest/uthmac.h).
///
/// The work runs on the processor's AES instructions where it has them, else on its byte
/// permutation (SSSE3). A processor without either takes eight blocks at a time with logical
/// operations alone: CBC encryption, which can only take one block after the other, is slow there.
/// In no way do key and data show in which memory is touched or how long it takes.
///
/// Nothing allocates. Threads: any number of threads may encrypt and decrypt with one object while
/// none calls set_key(). The destructor wipes the object.

#include <cstddef>

#include "utils/etc/uttypes.h"
#include "utils/utmem/utwipe.h"

struct a_aes_code;

class UTAES {
  public:
    static constexpr std::size_t block_size = 16;

    /// Without a key: encryption and decryption fail.
    UTAES() = default;
    UTAES(const UTAES&) = delete;
    UTAES& operator=(const UTAES&) = delete;
    ~UTAES() { ut_wipe(_schedule, sizeof _schedule); }

    /// Takes a key of `key_len` bytes, 16 (AES-128) or 32 (AES-256). False for any other length or
    /// a null key; the object is then without a key.
    a_bool set_key(const a_byte* key, std::size_t key_len);

    /// The same with a given code of aescode.h, which this processor must be able to run.
    a_bool set_key(const a_byte* key, std::size_t key_len, const a_aes_code& code);

    /// Encrypt or decrypt `len` bytes at `data`. `iv`, block_size bytes, is the vector to start
    /// from and is left as the last block of ciphertext, so that a further call continues the
    /// message. False without a key or when `len` is not a multiple of block_size; nothing is
    /// changed then. `len` 0 is a success that changes nothing.
    a_bool encrypt_cbc(a_byte* iv, a_byte* data, std::size_t len) const;
    a_bool decrypt_cbc(a_byte* iv, a_byte* data, std::size_t len) const;

  private:
    static constexpr std::size_t schedule_size = block_size * 8 * 15;

    a_bool fits(std::size_t len) const { return _code != nullptr && len % block_size == 0; }

    const a_aes_code* _code = nullptr;  // null: no key
    unsigned _rounds = 0;
    a_byte _schedule[schedule_size];  // in the form that _code made of the key
};

#endif
