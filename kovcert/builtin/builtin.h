#ifndef QUOREL_KOVCERT_BUILTIN_BUILTIN_H
#define QUOREL_KOVCERT_BUILTIN_BUILTIN_H

/// The crypto provider that is compiled into the library. It needs no file and offers what the
/// interface in qxci.h has but for streams and connections: block encryption and hashing, password
/// hashing and signatures. Its entry points are the six getters of qxci.h for these tables,
///
///     QXCIGetEnvIface               QXCIGetErrorIface        QXCIGetPasswordHasherIface
///     QXCIGetBlockHasherIface       QXCIGetBlockEncrypterIface
///     QXCIGetSignatureHandlerIface
///
/// which here are hidden functions of the library itself. They fail only for a null table.
///
/// Environment. It needs alloc_cb and free_cb, takes all memory from them and calls no other
/// callback. It reads no option: those of the owner, "FIPS" among them, are meant for others.
///
/// Block encryption. "AES", "AES128", "AES-128", "AES_128" (number 2) and "AES256", "AES-256",
/// "AES_256" (number 4), with keys of exactly 16 and 32 bytes.
///   - The mode is CBC (NIST SP 800-38A) in blocks of 16 bytes.
///   - There is no padding: data is encrypted in place, so its length must be a multiple of 16; 0
///     is allowed. The owner pads data of other lengths with a rule of its own.
///   - The option "iv" gives the initialization vector as 32 hex digits; without it the vector is
///     zero. Every call starts from it, unless the flag QXCI_ENC_CONTINUE makes the call go on from
///     the last block of the previous call in the same direction. Messages that begin alike show
///     that they do when key and vector are the same: use a fresh random vector for each message,
///     or begin each message with a block of random bytes.
///   - Nothing detects changes to the ciphertext.
///
/// Block hashing. "SHA256", "SHA-256", "SHA_256" (number 1), "SHA1", "SHA-1", "SHA_1" (3), "MD5"
/// (5), "CRC32", "CRC" (6; four bytes, the most significant first).
///
/// Password hashing. "PBKDF2-SHA256", "PBKDF2_SHA256" (number 1): PBKDF2 with HMAC-SHA-256 and 32
/// bytes of output, a random salt of 16 bytes and 600,000 iterations. The text is
/// "$pbkdf2-sha256$<iterations>$<salt>$<hash>", the numbers of bytes in lower-case hex. Checking
/// takes the iterations and the salt from the text, from 1 to 10,000,000 iterations.
///
/// Signatures. DSA over SHA-1 with nonces by RFC 6979. The key comes as options, each a number in
/// hex: "dsa_p", "dsa_q", "dsa_g" with sizes of 1024/160 or 2048/256 bits, and "dsa_x", the private
/// key, or "dsa_y", the public key that is enough for verifying, or both. Creation checks all of
/// them, the primality of the domain parameters included, which for the larger sizes takes a second
/// or two on a 32-bit host: a missing one is QxciErrKeyMissing, wrong domain parameters are
/// QxciErrOptionError with "dsa_p", a key that does not belong to them the same with its own name.
///   - What is hashed: the kind of signature, then the texts, each preceded by its length as eight
///     bytes, the most significant first. The kinds are the texts "QXCI database signature" and
///     "QXCI connection signature".
///   - The signature is r and s in hex with the length of q each, 80 or 128 digits.

#include "kovcert/qxci/qxci.h"

#endif
