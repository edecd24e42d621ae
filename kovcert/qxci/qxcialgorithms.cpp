#include "kovcert/qxci/qxcialgorithms.h"

#include "utils/etc/utascii.h"

namespace {

constexpr const char* rsa_names[] = {"rsa", "rsa_tls", nullptr};
constexpr const char* ecc_names[] = {"ecc", "ecc_tls", nullptr};
constexpr const char* rsa_fips_names[] = {"rsa_tls_fips", nullptr};

constexpr const char* aes128_names[] = {"AES", "AES128", "AES-128", "AES_128", nullptr};
constexpr const char* aes256_names[] = {"AES256", "AES-256", "AES_256", nullptr};
constexpr const char* aes128_fips_names[] = {"AES_FIPS", "AES128_FIPS", "AES-128_FIPS",
                                             "AES_128_FIPS", nullptr};
constexpr const char* aes256_fips_names[] = {"AES256_FIPS", "AES-256_FIPS", "AES_256_FIPS",
                                             nullptr};

constexpr const char* sha256_names[] = {"SHA256", "SHA-256", "SHA_256", nullptr};
constexpr const char* sha1_names[] = {"SHA1", "SHA-1", "SHA_1", nullptr};
constexpr const char* md5_names[] = {"MD5", nullptr};
constexpr const char* crc32_names[] = {"CRC32", "CRC", nullptr};
constexpr const char* sha256_fips_names[] = {"SHA256_FIPS", "SHA-256_FIPS", "SHA_256_FIPS",
                                             nullptr};
constexpr const char* sha1_fips_names[] = {"SHA1_FIPS", "SHA-1_FIPS", "SHA_1_FIPS", nullptr};

constexpr a_qxci_algorithm last_row = {QXCI_LAST_ALGORITHM, nullptr, STATIC_IFACE};

bool has_alias(const a_qxci_algorithm& row, const char* name) {
    for (const char* const* alias = row.aliases; *alias != nullptr; ++alias) {
        if (ut_equal_nocase(*alias, name)) return true;
    }
    return false;
}

std::optional<_iface_index> choose_slot(const a_qxci_algorithm* table, const a_qxci_algorithm* row,
                                        a_bool fips) {
    if (gUseStub) return OTHER_IFACE;
    const bool is_crc = table == HashAlgorithms && row != nullptr && row->alg_id == QXCI_HASH_CRC32;
    // Whatever the table says: a FIPS provider may have algorithms of its own.
    if (fips && !is_crc) return FIPS_IFACE;
    if (row == nullptr) return std::nullopt;
    return row->iface;
}

}  // namespace

std::atomic<a_bool> gUseStub{false};

const a_qxci_algorithm StreamAlgorithms[] = {
    {QXCI_STREAM_RSA_TLS, rsa_names, RSA_IFACE},
    {QXCI_STREAM_ECC_TLS, ecc_names, ECC_IFACE},
    {QXCI_STREAM_RSA_TLS_FIPS, rsa_fips_names, FIPS_IFACE},
    last_row,
};

const a_qxci_algorithm EncAlgorithms[] = {
    {QXCI_ENC_AES128, aes128_names, STATIC_IFACE},
    {QXCI_ENC_AES256, aes256_names, STATIC_IFACE},
    {QXCI_ENC_AES128_FIPS, aes128_fips_names, FIPS_IFACE},
    {QXCI_ENC_AES256_FIPS, aes256_fips_names, FIPS_IFACE},
    last_row,
};

const a_qxci_algorithm HashAlgorithms[] = {
    {QXCI_HASH_SHA256, sha256_names, STATIC_IFACE},
    {QXCI_HASH_SHA1, sha1_names, STATIC_IFACE},
    {QXCI_HASH_MD5, md5_names, STATIC_IFACE},
    {QXCI_HASH_CRC32, crc32_names, STATIC_IFACE},
    {QXCI_HASH_SHA256_FIPS, sha256_fips_names, FIPS_IFACE},
    {QXCI_HASH_SHA1_FIPS, sha1_fips_names, FIPS_IFACE},
    last_row,
};

const a_qxci_algorithm* qxci_find_algorithm(const a_qxci_algorithm* table, a_qxci_byte id) {
    for (; table->alg_id != QXCI_LAST_ALGORITHM; ++table) {
        if (table->alg_id == id) return table;
    }
    return nullptr;
}

const a_qxci_algorithm* qxci_find_algorithm(const a_qxci_algorithm* table, const char* name) {
    if (name == nullptr) return nullptr;
    for (; table->alg_id != QXCI_LAST_ALGORITHM; ++table) {
        if (has_alias(*table, name)) return table;
    }
    return nullptr;
}

std::optional<_iface_index> qxci_choose_slot(const a_qxci_algorithm* table, a_qxci_byte id,
                                             a_bool fips) {
    return choose_slot(table, qxci_find_algorithm(table, id), fips);
}

std::optional<_iface_index> qxci_choose_slot(const a_qxci_algorithm* table, const char* name,
                                             a_bool fips) {
    if (name == nullptr) return std::nullopt;
    return choose_slot(table, qxci_find_algorithm(table, name), fips);
}
