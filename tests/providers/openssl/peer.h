#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_PEER_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_PEER_H

/// A server of OpenSSL's own at the other end of a wire. It echoes what it reads and answers as
/// soon as it is asked.

#include <openssl/ssl.h>

#include "certificates.h"
#include "testprovider.h"

class Peer : public Wire {
  public:
    explicit Peer(const Certificate& certificate, int version = TLS1_3_VERSION,
                  const Certificate* issuer = nullptr) {
        SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
        // Below what the client asks for, so that it is the client who refuses.
        SSL_CTX_set_security_level(context, 0);
        SSL_CTX_set_min_proto_version(context, version);
        SSL_CTX_set_max_proto_version(context, version);
        SSL_CTX_use_certificate(context, certificate.x509.get());
        SSL_CTX_use_PrivateKey(context, certificate.key.get());
        if (issuer != nullptr) SSL_CTX_add1_chain_cert(context, issuer->x509.get());
        ssl = SSL_new(context);
        SSL_CTX_free(context);
        SSL_set_bio(ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_accept_state(ssl);
    }
    ~Peer() override { SSL_free(ssl); }

    void answer() override {
        BIO_write(SSL_get_rbio(ssl), out.data() + _seen, static_cast<int>(out.size() - _seen));
        _seen = out.size();
        char buf[20000];
        for (int got; (got = SSL_read(ssl, buf, sizeof buf)) > 0;) SSL_write(ssl, buf, got);
        for (int got; (got = BIO_read(SSL_get_wbio(ssl), buf, sizeof buf)) > 0;) {
            in.append(buf, static_cast<size_t>(got));
        }
        if (server_name.empty() && SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name) != nullptr) {
            server_name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
        }
    }

    SSL* ssl;
    std::string server_name;  // that the client asked for

  private:
    size_t _seen = 0;
};

#endif
