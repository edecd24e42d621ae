#ifndef QUOREL_PROVIDERS_OPENSSL_OPENSSLLIBRARY_H
#define QUOREL_PROVIDERS_OPENSSL_OPENSSLLIBRARY_H

/// This provider's own copy of OpenSSL: linked in statically with hidden symbols, so that it never
/// meets another OpenSSL in the process.
///
/// OpenSSL's allocator is one for the whole copy and cannot serve the memory of several
/// environments: what OpenSSL itself allocates comes from malloc. Everything of the provider's own
/// comes from the environment's callbacks. Its state per thread goes when the thread ends.

#include <memory>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

template <auto Free>
struct an_openssl_deleter {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};

using BioPtr = std::unique_ptr<BIO, an_openssl_deleter<BIO_free>>;
using BioMethodPtr = std::unique_ptr<BIO_METHOD, an_openssl_deleter<BIO_meth_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, an_openssl_deleter<EVP_PKEY_free>>;
using CertPtr = std::unique_ptr<X509, an_openssl_deleter<X509_free>>;
using StorePtr = std::unique_ptr<X509_STORE, an_openssl_deleter<X509_STORE_free>>;
using ContextPtr = std::unique_ptr<SSL_CTX, an_openssl_deleter<SSL_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, an_openssl_deleter<SSL_free>>;

inline void free_certificates(STACK_OF(X509) * certificates) {
    sk_X509_pop_free(certificates, X509_free);
}
using ChainPtr = std::unique_ptr<STACK_OF(X509), an_openssl_deleter<free_certificates>>;

#endif
