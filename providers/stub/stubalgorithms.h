#ifndef QUOREL_PROVIDERS_STUB_STUBALGORITHMS_H
#define QUOREL_PROVIDERS_STUB_STUBALGORITHMS_H

/// The algorithms by number and by name.

#include "providers/stub/qxcistub.h"

struct a_stub_algorithm {
    a_qxci_byte id;
    size_t size;           // of the key or of the result
    const char* names[4];  // the unused ones at the end are null
};

inline constexpr a_stub_algorithm stub_streams[] = {
    {QXCI_STREAM_RSA_TLS, 0, {"rsa", "rsa_tls"}},
    {QXCI_STREAM_ECC_TLS, 0, {"ecc", "ecc_tls"}},
    {QXCI_STREAM_RSA_TLS_FIPS, 0, {"rsa_tls_fips"}},
    {QXCI_STREAM_STUB, 0, {"stub"}},
};

inline constexpr a_stub_algorithm stub_encrypters[] = {
    {QXCI_ENC_AES128, 16, {"AES", "AES128", "AES-128", "AES_128"}},
    {QXCI_ENC_AES256, 32, {"AES256", "AES-256", "AES_256"}},
    {QXCI_ENC_AES128_FIPS, 16, {"AES_FIPS", "AES128_FIPS", "AES-128_FIPS", "AES_128_FIPS"}},
    {QXCI_ENC_AES256_FIPS, 32, {"AES256_FIPS", "AES-256_FIPS", "AES_256_FIPS"}},
};

inline constexpr a_stub_algorithm stub_hashers[] = {
    {QXCI_HASH_SHA256, 32, {"SHA256", "SHA-256", "SHA_256"}},
    {QXCI_HASH_SHA1, 20, {"SHA1", "SHA-1", "SHA_1"}},
    {QXCI_HASH_MD5, 16, {"MD5"}},
    {QXCI_HASH_CRC32, 4, {"CRC32", "CRC"}},
    {QXCI_HASH_SHA256_FIPS, 32, {"SHA256_FIPS", "SHA-256_FIPS", "SHA_256_FIPS"}},
    {QXCI_HASH_SHA1_FIPS, 20, {"SHA1_FIPS", "SHA-1_FIPS", "SHA_1_FIPS"}},
};

inline constexpr a_stub_algorithm stub_pw_hashers[] = {
    {QXCI_PW_HASH_PBKDF2_SHA256, 8, {"PBKDF2-SHA256", "PBKDF2_SHA256"}},
};

#endif
