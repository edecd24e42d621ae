#ifndef QUOREL_KOVCERT_BUILTIN_BUILTINALGORITHMS_H
#define QUOREL_KOVCERT_BUILTIN_BUILTINALGORITHMS_H

/// The algorithms of the built-in provider by number and by name.

#include "kovcert/qxci/qxci.h"

struct a_builtin_algorithm {
    a_qxci_byte id;
    const char* names[4];  // the unused ones at the end are null
};

inline constexpr a_builtin_algorithm builtin_enc_algorithms[] = {
    {QXCI_ENC_AES128, {"AES", "AES128", "AES-128", "AES_128"}},
    {QXCI_ENC_AES256, {"AES256", "AES-256", "AES_256"}},
};

inline constexpr a_builtin_algorithm builtin_hash_algorithms[] = {
    {QXCI_HASH_SHA256, {"SHA256", "SHA-256", "SHA_256"}},
    {QXCI_HASH_SHA1, {"SHA1", "SHA-1", "SHA_1"}},
    {QXCI_HASH_MD5, {"MD5"}},
    {QXCI_HASH_CRC32, {"CRC32", "CRC"}},
};

inline constexpr a_builtin_algorithm builtin_pw_hash_algorithms[] = {
    {QXCI_PW_HASH_PBKDF2_SHA256, {"PBKDF2-SHA256", "PBKDF2_SHA256"}},
};

#endif
