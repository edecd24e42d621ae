#ifndef QUOREL_PROVIDERS_OPENSSL_TLSCONN_H
#define QUOREL_PROVIDERS_OPENSSL_TLSCONN_H

/// A connection: one TLS session over the owner's callbacks.
///
/// A client's handshake is driven when it is created, and goes on in the first reads and writes
/// only if the callbacks would block; a server's, which begins with waiting for the client, is done
/// there from the start.

#include "providers/openssl/callbackbio.h"
#include "providers/openssl/tlsstream.h"

class TlsConn : public qxci::Object {
  public:
    using a_handle = QXCIStreamConnH;
    using an_owner = TlsStream;

    explicit TlsConn(const TlsStream& stream)
        : Object(stream.env()), _stream(stream), _settings(memory(), &stream.settings()),
          _bio(memory(), _callbacks) {}
    TlsConn(const TlsConn&) = delete;
    TlsConn& operator=(const TlsConn&) = delete;
    ~TlsConn();

    /// Reads the options and begins the handshake.
    a_qxci_result init(const a_qxci_conn_callbacks* callbacks, a_qxci_user_option* options,
                       void* user_data);

    /// Once the session is broken, its error stays.
    void begin_operation() {
        if (_state != BROKEN) Object::begin_operation();
    }

    a_qxci_io_result read(a_qxci_byte* buf, size_t len, size_t* got);
    a_qxci_io_result write(const a_qxci_byte* data, size_t len);
    a_qxci_io_result flush();

    /// OpenSSL's request to verify the peer's certificate.
    static int verify_entry(X509_STORE_CTX* context, void*);

  private:
    enum a_state {
        HANDSHAKING,
        OPEN,
        ENDED,  // the peer has ended the session
        BROKEN
    };

    static void note_incoming(int written, int version, int type, const void* data, size_t len,
                              SSL* ssl, void* to);
    bool make_session();
    bool set_credentials();
    bool demand_certificate(const X509_STORE* trust);
    bool set_peer_name();
    bool accept_peer(X509_STORE_CTX& context);

    a_qxci_io_result standing();
    a_qxci_io_result begin();
    a_qxci_io_result handshake();
    a_qxci_io_result judge(int result, a_dbqxci_error code);
    a_qxci_io_result broken(unsigned long openssl_error = 0);
    void log(int level, const char* text) const;
    void log_session() const;

    const TlsStream& _stream;
    Settings _settings;
    a_qxci_conn_callbacks _callbacks = {};
    void* _user_data = nullptr;
    a_credentials _credentials;  // its own; the stream's hold for what is missing
    CallbackBio _bio;
    SslPtr _ssl;
    a_state _state = HANDSHAKING;
    size_t _taken = 0;  // bytes of an unfinished write that have gone out
};

#endif
