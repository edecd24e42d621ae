#ifndef QUOREL_PROVIDERS_STUB_STUBTEXT_H
#define QUOREL_PROVIDERS_STUB_STUBTEXT_H

/// Names, lists of options, and the algorithms by name and by number.

#include <cstddef>

#include "kovcert/qxci/qxci.h"
#include "providers/stub/qxcistub.h"

/// True when the names differ in the case of ASCII letters at most; a null name equals none.
bool stub_same_name(const char* a, const char* b);

/// The value of the first option with the name, which is marked as used, or null. An option without
/// a value has an empty one.
const char* stub_find_option(a_qxci_user_option* options, const char* name);

/// Options that an object accepts: names, the last one followed by null.
using a_stub_option_names = const char* const*;

/// Accepted by streams and connections: all that the owner or a user may want of TLS.
extern const a_stub_option_names stub_tls_options;

/// The name of the first option that is not among `known`; null when all are.
const char* stub_find_unknown_option(const a_qxci_user_option* options, a_stub_option_names known);

struct a_stub_algorithm {
    a_qxci_byte id;
    size_t size;           // of the key or of the result
    const char* names[5];  // the last one used is followed by null
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

inline bool stub_is_algorithm(const a_stub_algorithm& row, a_qxci_byte id) {
    return row.id == id;
}

inline bool stub_is_algorithm(const a_stub_algorithm& row, const char* name) {
    for (const char* const* known = row.names; *known != nullptr; ++known) {
        if (stub_same_name(*known, name)) return true;
    }
    return false;
}

/// The row of an algorithm, given by number or by name, or null; a null name is no algorithm.
template <size_t Rows, class Key>
const a_stub_algorithm* stub_find_algorithm(const a_stub_algorithm (&rows)[Rows], Key key) {
    for (const a_stub_algorithm& row : rows) {
        if (stub_is_algorithm(row, key)) return &row;
    }
    return nullptr;
}

#endif
