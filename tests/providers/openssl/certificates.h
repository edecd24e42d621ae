#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_CERTIFICATES_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_CERTIFICATES_H

/// Certificates made on the spot.

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

enum a_key_kind { EC, RSA2048, RSA1024 };

struct a_request {
    std::vector<std::pair<const char*, std::string>> subject = {{"CN", "mail.example"}};
    std::string names = "";  // subject alternative names
    std::string usage = "serverAuth";
    int from_days = -1, to_days = 1;
    a_key_kind key = EC;
    bool authority = false;
};

/// A key of a kind is made once.
inline EVP_PKEY* key_of(a_key_kind kind) {
    static EVP_PKEY* keys[3];
    if (keys[kind] == nullptr) {
        keys[kind] =
            kind == EC ? EVP_EC_gen("P-256") : EVP_RSA_gen(kind == RSA2048 ? 2048U : 1024U);
    }
    return keys[kind];
}

template <class Write>
std::string text_of_bio(Write write) {
    BIO* const bio = BIO_new(BIO_s_mem());
    write(bio);
    char* data = nullptr;
    const long len = BIO_get_mem_data(bio, &data);
    std::string text(data, static_cast<size_t>(len));
    BIO_free(bio);
    return text;
}

class Certificate {
  public:
    /// Null `issuer`: signed by itself.
    explicit Certificate(const a_request& request, const Certificate* issuer = nullptr)
        : key(request.authority ? EVP_EC_gen("P-256") : key_of(request.key)), x509(X509_new()),
          _owns_key(request.authority) {
        const Certificate& signer = issuer == nullptr ? *this : *issuer;
        static long serial = 1;
        X509_set_version(x509, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(x509), serial++);
        X509_gmtime_adj(X509_getm_notBefore(x509), request.from_days * 86400L);
        X509_gmtime_adj(X509_getm_notAfter(x509), request.to_days * 86400L);
        X509_set_pubkey(x509, key);
        for (const auto& [name, value] : request.subject) {
            X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), name, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(value.data()),
                                       static_cast<int>(value.size()), -1, 0);
        }
        X509_set_issuer_name(x509, X509_get_subject_name(signer.x509));
        if (request.authority) {
            extend(NID_basic_constraints, "critical,CA:TRUE");
        } else {
            extend(NID_ext_key_usage, request.usage);
        }
        if (!request.names.empty()) extend(NID_subject_alt_name, request.names);
        X509_sign(x509, signer.key, EVP_sha256());
    }
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;
    ~Certificate() {
        X509_free(x509);
        if (_owns_key) EVP_PKEY_free(key);
    }

    std::string pem() const {
        return text_of_bio([&](BIO* bio) { PEM_write_bio_X509(bio, x509); });
    }
    std::string der() const {
        return text_of_bio([&](BIO* bio) { i2d_X509_bio(bio, x509); });
    }
    std::string key_pem(const char* password = nullptr) const {
        const EVP_CIPHER* const cipher = password == nullptr ? nullptr : EVP_aes_128_cbc();
        return text_of_bio([&](BIO* bio) {
            PEM_write_bio_PKCS8PrivateKey(bio, key, cipher, nullptr, 0, nullptr,
                                          const_cast<char*>(password));
        });
    }

    EVP_PKEY* const key;
    X509* const x509;

  private:
    void extend(int nid, const std::string& value) {
        X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
        X509_add_ext(x509, extension, -1);
        X509_EXTENSION_free(extension);
    }

    const bool _owns_key;
};

#endif
