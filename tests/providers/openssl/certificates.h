#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_CERTIFICATES_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_CERTIFICATES_H

/// Certificates made on the spot.

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

enum a_key_kind { EC, EC_AUTHORITY, RSA2048, RSA1024 };

struct a_request {
    std::vector<std::pair<const char*, std::string>> subject = {{"CN", "mail.example"}};
    std::string usage = "serverAuth";
    int from_days = -1, to_days = 1;
    a_key_kind key = EC;
    std::string names = "DNS:*.hosts.example";  // "#" becomes a zero byte
    const char* constraints = nullptr;          // an authority's, on names
    const EVP_MD* (*digest)() = EVP_sha256;
};

/// A new key where it matters whose it is; of the other kinds there is one each.
inline std::shared_ptr<EVP_PKEY> key_of(a_key_kind kind) {
    static std::shared_ptr<EVP_PKEY> keys[4];
    if (keys[kind] == nullptr || kind == EC_AUTHORITY) {
        const bool ec = kind == EC || kind == EC_AUTHORITY;
        keys[kind].reset(ec ? EVP_EC_gen("P-256") : EVP_RSA_gen(kind == RSA2048 ? 2048U : 1024U),
                         EVP_PKEY_free);
    }
    return keys[kind];
}

template <class Write>
std::string written_by(Write write) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    write(bio.get());
    char* data = nullptr;
    const long len = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<size_t>(len)};
}

class Certificate {
  public:
    /// Null `issuer`: signed by itself.
    explicit Certificate(const a_request& request, const Certificate* issuer = nullptr)
        : key(key_of(request.key)), x509(X509_new(), X509_free) {
        static long serial = 1;
        X509* const x = x509.get();
        X509_set_version(x, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(x), serial++);
        X509_gmtime_adj(X509_getm_notBefore(x), request.from_days * 86400L);
        X509_gmtime_adj(X509_getm_notAfter(x), request.to_days * 86400L);
        X509_set_pubkey(x, key.get());
        for (const auto& [name, value] : request.subject) {
            X509_NAME_add_entry_by_txt(X509_get_subject_name(x), name, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(value.data()),
                                       static_cast<int>(value.size()), -1, 0);
        }
        X509_set_issuer_name(x, X509_get_subject_name(issuer == nullptr ? x : issuer->x509.get()));
        const bool authority = request.key == EC_AUTHORITY;
        extend(authority ? NID_basic_constraints : NID_ext_key_usage,
               authority ? "critical,CA:TRUE" : request.usage);
        if (!request.names.empty()) extend(NID_subject_alt_name, request.names);
        if (request.constraints != nullptr) extend(NID_name_constraints, request.constraints);
        X509_sign(x, (issuer == nullptr ? key : issuer->key).get(), request.digest());
    }

    std::string pem() const {
        return written_by([&](BIO* bio) { PEM_write_bio_X509(bio, x509.get()); });
    }
    std::string der() const {
        return written_by([&](BIO* bio) { i2d_X509_bio(bio, x509.get()); });
    }
    std::string key_pem(const char* password = nullptr) const {
        return written_by([&](BIO* bio) {
            PEM_write_bio_PKCS8PrivateKey(bio, key.get(),
                                          password == nullptr ? nullptr : EVP_aes_128_cbc(),
                                          nullptr, 0, nullptr, const_cast<char*>(password));
        });
    }

    const std::shared_ptr<EVP_PKEY> key;
    const std::shared_ptr<X509> x509;

  private:
    void extend(int nid, const std::string& value) {
        X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
        ASN1_OCTET_STRING* const data = X509_EXTENSION_get_data(extension);
        if (nid == NID_subject_alt_name) {
            std::replace(data->data, data->data + data->length, '#', '\0');
        }
        X509_add_ext(x509.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }
};

#endif
